// The robot's product number, read from the MCU, published and used to choose the region.
#pragma once

// get_pn's result, or -1 when the serial link cannot be opened.
int getrobotpn();
