// The one-second tick that makes the main loop check the daemons.
#pragma once

// 1 when the timer runs, 0 when it could not be set.
int OS_InitTimer();
void OS_TimerRoutine(int signal);
