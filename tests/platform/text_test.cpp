// text tests.
