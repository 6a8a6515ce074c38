# Configures for macOS on a machine that is not one, to check what the build would produce there
# (target file names, link options, install paths). It cannot build: there is no Apple linker or SDK.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 20.0)
set(CMAKE_SYSTEM_PROCESSOR arm64)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_TARGET arm64-apple-macos11)
set(CMAKE_OSX_ARCHITECTURES arm64 CACHE STRING "")
set(CMAKE_OSX_SYSROOT "" CACHE PATH "")
# Compiler checks may compile but not link: linking needs Apple's linker.
set(CMAKE_CXX_COMPILER_WORKS TRUE)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
