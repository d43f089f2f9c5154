// events: POSIX implementation.
