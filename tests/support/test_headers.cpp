// Nothing but what CMake has precompiled for all tests.
