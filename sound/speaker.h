// Voice prompts on the way down: a prompt named by a power-off or reboot request is played on
// a thread of its own while the daemons are stopped.
#pragma once

// Plays the user's prompt of that name, or else the factory prompt of the robot's region; up
// to four attempts, a second apart. Returns the last attempt's result.
int DoSpeaker(const char* name);

// Starts the sound thread on the requested prompt; pthread_create's result.
int create_snd_thread();
// Waits for the sound thread to end, logging the join's result.
void destroy_snd_thread();
