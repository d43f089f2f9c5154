// hub_device tests.
