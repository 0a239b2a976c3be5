# Configures the library with firmware images of several sizes, as
#   cmake -DSOURCE=... -DSCRATCH=... -DGENERATOR=... -DCOMPILER=... -P firmware_configuration.cmake
# A wrong image stops the configuration and is named with its right size; right ones are carried.

set(images ${SCRATCH}/images)

function(write_image model size)
    string(RANDOM LENGTH ${size} RANDOM_SEED ${size} content)
    file(WRITE ${images}/${model}.bin "${content}")
endfunction()

function(write_all_images)
    file(REMOVE_RECURSE ${images})
    write_image(k40 15888)
    write_image(k44 14002)
    write_image(k50 14172)
endfunction()

# Leaves whether it succeeded in `succeeded` and all that it said, on one line, in `said`.
function(configure)
    execute_process(
        COMMAND ${CMAKE_COMMAND} -S ${SOURCE} -B ${SCRATCH}/build -G ${GENERATOR}
                -DCMAKE_CXX_COMPILER=${COMPILER} -DMARVANE_TESTS=OFF -DMARVANE_SIMULATOR=OFF
                -DMARVANE_EXAMPLES=OFF -DMARVANE_BENCHMARKS=OFF ${ARGN}
        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    string(REGEX REPLACE "[ \n]+" " " output "${output}")
    set(said "${output}" PARENT_SCOPE)
    if(result EQUAL 0)
        set(succeeded TRUE PARENT_SCOPE)
    else()
        set(succeeded FALSE PARENT_SCOPE)
    endif()
endfunction()

function(expect_stop message)
    configure(-DMARVANE_FIRMWARE_DIR=${images})
    if(succeeded OR NOT said MATCHES "${message}")
        message(SEND_ERROR "expected a stop with \"${message}\", got: ${said}")
    endif()
endfunction()

function(expect_carried model)
    file(READ ${images}/${model}.bin expected HEX)
    file(READ ${SCRATCH}/build/firmware/${model}_firmware.inc carried)
    string(REGEX REPLACE "0x|[,\n]" "" carried "${carried}")
    if(NOT carried STREQUAL expected)
        message(SEND_ERROR "${model}.bin is not what the library carries")
    endif()
endfunction()

file(REMOVE_RECURSE ${SCRATCH})

configure()
if(NOT succeeded OR NOT said MATCHES "Firmware: stand-ins")
    message(SEND_ERROR "without images: ${said}")
endif()

write_all_images()
file(REMOVE ${images}/k44.bin)
expect_stop("k44.bin is missing; it must have 14002 bytes")

write_all_images()
write_image(k50 14171)
expect_stop("k50.bin has 14171 bytes; it must have 14172")

write_all_images()
write_image(k40 15889)
expect_stop("k40.bin has 15889 bytes; it must have 15888")

write_all_images()
configure(-DMARVANE_FIRMWARE_DIR=${images})
if(NOT succeeded OR said MATCHES "stand-in")
    message(SEND_ERROR "with images: ${said}")
endif()
expect_carried(k40)
expect_carried(k44)
expect_carried(k50)
