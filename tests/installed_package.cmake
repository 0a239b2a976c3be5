# Installs everything into a scratch folder, looks whether it is what we ship, and builds against it
# in both ways that a user has: find_package, as the installed examples do, and pkg-config.
#
# cmake -DBUILD=... -DSCRATCH=... -DGENERATOR=... -DCOMPILER=... -DSTRIPPED=ON|OFF
#       -P installed_package.cmake

function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_VARIABLE output)
    set(output "${output}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${SCRATCH})
set(prefix ${SCRATCH}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})

set(doc ${prefix}/share/doc/marvaneusb)
foreach(file LICENSE README.md CHANGELOG.md docs/simulator.md)
    if(NOT EXISTS ${doc}/${file})
        message(FATAL_ERROR "${doc}/${file} is not installed")
    endif()
endforeach()

file(GLOB_RECURSE pc ${prefix}/*/marvaneusb.pc)
cmake_path(GET pc PARENT_PATH pc_folder)
cmake_path(GET pc_folder PARENT_PATH lib)
if(STRIPPED)
    file(GLOB programs ${prefix}/bin/*)
    foreach(binary ${lib}/libmarvaneusb.so ${programs})
        run(nm ${binary})
        if(NOT output STREQUAL "")
            message(FATAL_ERROR "${binary} is not stripped")
        endif()
    endforeach()
endif()

set(examples ${SCRATCH}/examples)
run(${CMAKE_COMMAND} -S ${doc}/examples -B ${examples} -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${COMPILER})
run(${CMAKE_COMMAND} --build ${examples})

set(user ${SCRATCH}/user)
file(WRITE ${user}.cpp [[
#include <marvaneusb.h>
int main() {
    MarvaneUSB board;
    unsigned char text[2];
    return board.GetDllVersion(text) && E24LC512.highestAddress == 65535 ? 0 : 1;
}
]])
set(ENV{PKG_CONFIG_PATH} ${pc_folder})
run(pkg-config --cflags --libs marvaneusb)
separate_arguments(flags UNIX_COMMAND "${output}")
run(${COMPILER} -std=c++11 ${user}.cpp ${flags} -Wl,-rpath,${lib} -o ${user})
run(${user})
