# The 8051 programs that the library downloads to its boards. They come with the boards, so they
# are an input of the build: MARVANE_FIRMWARE_DIR holds k40.bin, k44.bin and k50.bin. Without it
# the library carries stand-ins of the same sizes, which no real board can work with. A stand-in
# has the text "MARVANE STAND-IN FIRMWARE" at address 256.

set(MARVANE_FIRMWARE_INCLUDES ${PROJECT_BINARY_DIR}/firmware)
if(NOT MARVANE_FIRMWARE_DIR)
    message(STATUS "Firmware: stand-ins, which do nothing; a real board needs its own images "
                   "(-DMARVANE_FIRMWARE_DIR=folder with k40.bin, k44.bin, k50.bin)")
endif()

# The image as hexadecimal digits: a program that loops wherever the processor starts it.
function(marvane_stand_in_image model size result)
    # Eight bytes: SJMP to itself, once at reset (address 0) and once at each interrupt vector
    # (3, 11, 19 and so on, one in every eight bytes). What lies between leads to the next of them.
    string(REPEAT "80fe0080fe000000" 32 vectors)
    string(HEX "MARVANE STAND-IN FIRMWARE ${model}: no program of a board" mark)
    set(image "${vectors}${mark}")
    string(LENGTH ${image} digits)
    math(EXPR padding "${size} - ${digits} / 2")
    string(REPEAT "00" ${padding} rest)
    set(${result} "${image}${rest}" PARENT_SCOPE)
endfunction()

function(marvane_read_image model size result)
    set(file ${MARVANE_FIRMWARE_DIR}/${model}.bin)
    if(NOT EXISTS ${file} OR IS_DIRECTORY ${file})
        message(FATAL_ERROR "Firmware: ${file} is missing; it must have ${size} bytes")
    endif()
    file(SIZE ${file} found)
    if(NOT found EQUAL size)
        message(FATAL_ERROR "Firmware: ${file} has ${found} bytes; it must have ${size}")
    endif()
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
    file(READ ${file} image HEX)
    set(${result} "${image}" PARENT_SCOPE)
endfunction()

# marvane_firmware_image(k40 15888): writes k40_firmware.inc, the bytes of an array.
function(marvane_firmware_image model size)
    if(MARVANE_FIRMWARE_DIR)
        marvane_read_image(${model} ${size} image)
    else()
        marvane_stand_in_image(${model} ${size} image)
    endif()
    string(REGEX REPLACE "(..)" "0x\\1," bytes "${image}")
    file(CONFIGURE OUTPUT ${MARVANE_FIRMWARE_INCLUDES}/${model}_firmware.inc CONTENT "${bytes}\n"
         @ONLY)
endfunction()
