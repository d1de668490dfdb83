#pragma once

// Seconds since the board booted.
int get_uptime();
