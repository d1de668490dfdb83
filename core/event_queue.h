// The main loop's event queue: a System V message queue, so that a signal handler can post to
// it. It has a fixed key and outlives the process: events a run never read reach the next run.
#pragma once

enum EventId {
  CHECK_PROCESS = 2,
  RESET_QUOM = 3,
  SHUTDOWN_SYSTEM = 5,
  REBOOT_SYSTEM = 6,
};

// 1 when the event was queued, 0 otherwise (a full queue loses it). Never blocks.
int OS_SendQueue(int event);
// `flags` 0 waits for an event; 1 when one was received.
int OS_RecvQueue(int* event, int flags);

// Makes a wait for an event come back without one, to look at a stop request; safe in a
// signal handler. Left unread, it is passed over by the next run's first wait.
void wake_event_wait();
