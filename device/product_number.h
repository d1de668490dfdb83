// The robot's product number, read from the MCU, published and used to choose the region.
#pragma once

// get_pn's result, or -1 when the serial link cannot be opened.
int getrobotpn();

// The number of leading characters of `s`, at most `n`, that are printable ASCII (32 to 126):
// the product number's length.
int visual_len(const char* s, int n);
