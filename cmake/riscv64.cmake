# A 64-bit RISC-V, run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR riscv64)
set(CMAKE_C_COMPILER riscv64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER riscv64-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-riscv64;-L;/usr/riscv64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
