// The NTP servers, asked one per query in turn through the system's ntpdate, and the offset
// published for the other daemons. The board's clock is never set from the network.
#pragma once
#include <cstdio>
#include <string>
#include <vector>

// The servers of ntpserver.conf, in file order; ntp_cnt is the index of the next one to ask.
extern std::vector<std::string> ntp_list;
extern int ntp_cnt;

// Appends the servers of <dir>/ntpserver.conf to ntp_list.
void read_config(const char* dir);

// Asks the next server. 1 when it answered with an offset, 0 otherwise; *offset gets the
// offset in whole seconds (0 without an answer).
int sync_time(int* offset);

// Runs an ntpdate query command and reads its offset; the same results as sync_time.
int ntpdate_query(const char* command, int* offset);

// Reads ntpdate's output up to the first summary line with an offset: 1 and the offset, or 0
// at the end of the output.
int ntpdate_read(FILE* output, double* seconds);

// Whether one line of ntpdate's output is its summary with an offset, and that offset.
bool ntpdate_offset(const char* line, double* seconds);

// The network's time: the board clock's seconds plus `offset`. A non-zero offset is also
// written to the offset file.
int covert_offset(int offset);

// Once the board clock is valid, an offset file left from an earlier measurement is stale.
int maintain_initial_offset();
