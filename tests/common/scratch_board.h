// A board root for programs that run the supervisor's code outside a simulated board.
#pragma once
#include <string>

// Makes a temporary board root below /dev/shm, short (socket paths live below it) and in
// memory (fuzz targets rewrite its files on every run), and names it in CUSTODO_BOARD_ROOT:
// call it before anything asks for a board path, as the paths are fixed on first use. The root
// holds the directories of every board path and a millisecond counter standing at 0, as on a
// board that has just booted; board sleeps are made 10000 times shorter. The root is removed
// at exit. "" when it cannot be made.
std::string make_scratch_board();
