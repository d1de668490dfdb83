// The supervisor's log line: the millisecond clock in decimal, " tqwatchdog ", the message
// pieces one after the other, end of line. Each line is written to standard output with one
// call, so lines from different threads never mix. Texts are passed on where they lie and
// numbers are formatted on the stack: a line costs no allocation and no stream.
#pragma once
#include <charconv>
#include <cstdio>
#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>

#include "core/ms_clock.h"

namespace log_detail {

// One piece of a line: a text where it lies, or a number formatted into `digits`.
struct Piece {
  const char* data = nullptr;
  size_t size = 0;
  char digits[24];
};

inline void set(Piece* piece, const char* text) {
  piece->data = text;
  piece->size = std::strlen(text);
}
inline void set(Piece* piece, const std::string& text) {
  piece->data = text.data();
  piece->size = text.size();
}
// A character array may fill its whole size without a terminating zero.
template <size_t N>
void set(Piece* piece, const char (&text)[N]) {
  piece->data = text;
  piece->size = strnlen(text, N);
}
template <typename T>
std::enable_if_t<std::is_integral_v<T>> set(Piece* piece, T value) {
  if constexpr (std::is_same_v<T, char> || std::is_same_v<T, signed char> ||
                std::is_same_v<T, unsigned char>) {
    // As a stream shows them: the character itself.
    piece->digits[0] = static_cast<char>(value);
    piece->size = 1;
  } else {
    char* end = std::to_chars(piece->digits, piece->digits + sizeof piece->digits, value).ptr;
    piece->size = static_cast<size_t>(end - piece->digits);
  }
  piece->data = piece->digits;
}
// As a stream shows it by default: six significant digits.
inline void set(Piece* piece, double value) {
  int length = std::snprintf(piece->digits, sizeof piece->digits, "%g", value);
  piece->size = static_cast<size_t>(length);
  piece->data = piece->digits;
}

constexpr size_t kMostPieces = 32;

// Writes the pieces, the first being the stamp, with the tag after it and the line end.
void write_line(const Piece* pieces, size_t count);

}  // namespace log_detail

template <typename... Pieces>
void log_line(const Pieces&... pieces) {
  static_assert(sizeof...(Pieces) < log_detail::kMostPieces, "a log line of too many pieces");
  log_detail::Piece parts[sizeof...(Pieces) + 1];
  log_detail::set(&parts[0], get_cur_time_ms());
  size_t at = 1;
  (log_detail::set(&parts[at++], pieces), ...);
  log_detail::write_line(parts, sizeof...(Pieces) + 1);
}

// Output that is not a log line (printf formats), written the same way.
void print_raw(const char* format, ...) __attribute__((format(printf, 1, 2)));
