// module_version: POSIX implementation.
