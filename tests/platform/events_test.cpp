// events tests.
