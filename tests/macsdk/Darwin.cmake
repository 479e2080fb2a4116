# A toolchain for a Mac's programs on a system that has nothing of a Mac: clang, lld, and the declarations and stubs of
# this folder. MAC_PROCESSOR is arm64 or x86_64; MAC_SDK is the folder that tests/macsdk/CMakeLists.txt lays out.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR ${MAC_PROCESSOR})
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MAC_PROCESSOR MAC_SDK)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

set(CMAKE_CXX_COMPILER clang++-14)
set(CMAKE_CXX_COMPILER_TARGET ${MAC_PROCESSOR}-apple-macos11)
set(CMAKE_OBJCXX_COMPILER /usr/bin/clang++-14)
set(CMAKE_OBJCXX_COMPILER_TARGET ${MAC_PROCESSOR}-apple-macos11)
set(CMAKE_AR /usr/bin/llvm-ar-14)
set(CMAKE_RANLIB /usr/bin/llvm-ranlib-14)
set(CMAKE_INSTALL_NAME_TOOL /usr/bin/llvm-install-name-tool-14)
set(CMAKE_OSX_SYSROOT "" CACHE STRING "The SDK: none")

file(READ ${MAC_SDK}/compile-flags CMAKE_CXX_FLAGS_INIT)
file(READ ${MAC_SDK}/objective-c-flags CMAKE_OBJCXX_FLAGS_INIT)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-stdlib=libc++ --ld-path=/usr/bin/ld64.lld-14 -mlinker-version=609 -Wno-unused-command-line-argument -L${MAC_SDK}/lib -F${MAC_SDK}/frameworks")
# Nothing is linked while it is configured, so that what the C library has is not found by trying.
set(CMAKE_HAVE_LIBC_PTHREAD TRUE CACHE INTERNAL "")
