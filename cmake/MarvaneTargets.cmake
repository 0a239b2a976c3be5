# What all our targets have in common, and what a part does when a package is missing.

if(MARVANE_SANITIZE)
    # In instrumented code GCC takes parts of the standard library for uninitialised.
    add_compile_options(-fsanitize=${MARVANE_SANITIZE} -fno-omit-frame-pointer
                        -fno-sanitize-recover=all
                        $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    add_link_options(-fsanitize=${MARVANE_SANITIZE})
endif()

function(marvane_common_options target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
                           $<$<BOOL:${MARVANE_WARNINGS_ARE_ERRORS}>:-Werror>)
endfunction()

# Only where the build is asked to hurry: a header that a file forgets must show in every other one.
function(marvane_precompile target)
    if(MARVANE_PRECOMPILED_HEADERS)
        target_precompile_headers(${target} PRIVATE ${ARGN})
    endif()
endfunction()

# marvane_leave_out(part packages...): says which Debian packages bring the part. The caller then
# builds it no further.
function(marvane_leave_out part)
    list(JOIN ARGN " " packages)
    if(MARVANE_REQUIRE_EVERYTHING)
        message(FATAL_ERROR "${part} cannot be built: install ${packages}")
    endif()
    message(STATUS "${part} are left out: install ${packages}")
endfunction()
