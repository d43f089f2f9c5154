// system_version: POSIX implementation.
