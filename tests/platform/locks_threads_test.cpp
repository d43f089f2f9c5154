// locks_threads tests.
