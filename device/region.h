// The product number read from the MCU, the sales region derived from it, and the files that
// publish both.
#pragma once
#include <string>

// The region in force: empty until the product number was read, "prc" when nothing matched.
extern char g_region[128];
