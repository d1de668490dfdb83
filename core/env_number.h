// Numbers the supervisor takes from its environment, read as the C library's base-10
// conversion reads them: leading blanks and a sign, then digits up to the first other
// character; no digits read as 0. A value beyond the int range is held at its end rather
// than wrapped.
#pragma once

// The variable's number, or `unset` when the variable is not set.
int env_decimal(const char* name, int unset);
