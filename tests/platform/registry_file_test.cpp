// registry_file tests.
