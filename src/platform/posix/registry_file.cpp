// registry_file: POSIX implementation.
