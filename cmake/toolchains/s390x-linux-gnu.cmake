# Cross build for s390x Linux with Debian's cross g++ (g++-s390x-linux-gnu),
# run under qemu-user: CTest starts every test program, and the tests start
# every program of the build, through CMAKE_CROSSCOMPILING_EMULATOR.
# Libraries of the target (GoogleTest among them) come from Debian's
# multiarch packages, for example libgtest-dev:s390x.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CMAKE_C_COMPILER s390x-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER s390x-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE s390x-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-s390x;-L;/usr/s390x-linux-gnu)
