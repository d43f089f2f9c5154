// text: POSIX implementation.
