// threads: POSIX implementation.
