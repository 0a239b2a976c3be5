# Installs the library into a scratch folder and builds a program against it in both ways that a
# user has: find_package and pkg-config.
#
# cmake -DBUILD=... -DSCRATCH=... -DGENERATOR=... -DCOMPILER=... -P installed_package.cmake

function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_VARIABLE output)
    set(output "${output}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${SCRATCH})
set(prefix ${SCRATCH}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})

set(user ${SCRATCH}/user)
file(WRITE ${user}/main.cpp [[
#include <marvaneusb.h>
int main() {
    MarvaneUSB board;
    unsigned char text[2];
    return board.GetDllVersion(text) && E24LC512.highestAddress == 65535 ? 0 : 1;
}
]])
file(WRITE ${user}/CMakeLists.txt [[
cmake_minimum_required(VERSION 3.25)
project(user CXX)
find_package(marvaneusb REQUIRED)
add_executable(user main.cpp)
target_link_libraries(user PRIVATE marvaneusb::marvaneusb)
]])
run(${CMAKE_COMMAND} -S ${user} -B ${user}/build -G ${GENERATOR} -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_COMPILER=${COMPILER})
run(${CMAKE_COMMAND} --build ${user}/build)
run(${user}/build/user)

file(GLOB_RECURSE pc ${prefix}/*/marvaneusb.pc)
cmake_path(GET pc PARENT_PATH pc_folder)
set(ENV{PKG_CONFIG_PATH} ${pc_folder})
run(pkg-config --cflags --libs marvaneusb)
separate_arguments(flags UNIX_COMMAND "${output}")
run(${COMPILER} -std=c++11 ${user}/main.cpp ${flags} -o ${user}/by_pkg_config)
