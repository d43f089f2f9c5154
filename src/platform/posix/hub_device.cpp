// hub_device: POSIX implementation.
