// locks: POSIX implementation.
