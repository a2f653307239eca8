# Cross build for aarch64 Linux with Debian's cross g++ (g++-aarch64-linux-gnu),
# run under qemu-user: CTest starts every test program, and the tests start
# every program of the build, through CMAKE_CROSSCOMPILING_EMULATOR.
# Libraries of the target (GoogleTest among them) come from Debian's
# multiarch packages, for example libgtest-dev:arm64.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64;-L;/usr/aarch64-linux-gnu)
