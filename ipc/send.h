// The one way to send a message to another daemon.
#pragma once

// Sends `length` bytes of `data` (none when null) under `id`. Failures are logged only; a
// payload longer than 32 bytes is a programming error and aborts.
void send_ipc_msg(int id, const void* data, int length);
