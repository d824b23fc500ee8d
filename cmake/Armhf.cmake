# Toolchain of preset armhf: 32-bit ARM, the device's other ABI, with the libraries that
# scripts/sysroot unpacked. Programs run under qemu's user emulation (lumo_executable).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

get_filename_component(LUMO_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../.cache/armhf/root ABSOLUTE)
if(NOT EXISTS ${LUMO_SYSROOT}/packages)
    message(FATAL_ERROR "The libraries of 32-bit ARM are missing: run scripts/sysroot")
endif()

# Libraries and their headers come from there; libraries of headers alone (nlohmann-json, CLI11) from
# the workstation, and the C library's own from the compiler.
set(CMAKE_FIND_ROOT_PATH ${LUMO_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# Those libraries need others of the sysroot.
set(lumo_needed)
foreach(folder usr/lib/arm-linux-gnueabihf usr/lib/arm-linux-gnueabihf/android usr/lib/p7zip)
    string(APPEND lumo_needed " -Wl,-rpath-link,${LUMO_SYSROOT}/${folder}")
endforeach()
set(CMAKE_EXE_LINKER_FLAGS_INIT "${lumo_needed}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${lumo_needed}")

# What starts a program: in its name, where the kernel cannot, which may also start it by its path.
set(LUMO_EMULATOR qemu-arm -L ${LUMO_SYSROOT})
