# The package that other projects find: headers, libraries, CMake and pkg-config files.
