#pragma once

// The number of leading characters of `s`, at most `n`, that are printable ASCII (32 to 126).
int visual_len(const char* s, int n);
