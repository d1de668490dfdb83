// A Unix socket file that only root and the members of its directory's group may reach: mode
// 0660 and the group of the directory, as the installation gives it to the daemons' group.
#pragma once

// Binds the socket `fd` to `path`. The directory is made (0755, root's) when missing. The
// socket is bound in a directory of our own (0700, a name nobody can guess) and given its group
// and mode there, where nobody else can reach it or put a link in its place; then it is renamed
// onto `path` (replacing a file left by an earlier run). So no sender ever finds it open to
// everyone, and the group and mode never land on another file. 0, or -1 with errno set.
int bind_group_socket(int fd, const char* path);
