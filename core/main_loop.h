// The supervisor's life after start-up: one event at a time from the queue, until a decision
// to end the process.
#pragma once

[[noreturn]] void run_main_loop();
