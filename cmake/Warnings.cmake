# Warning flags. The library builds with warnings as errors; the host platform and the tests
# get the same warnings without -Werror so a newer compiler's new warning does not block a run.
set(NUVRA_WARNINGS -Wall -Wextra -Wformat=2 -Wno-unused-parameter)

function(nuvra_strict_warnings target)
    target_compile_options(${target} PRIVATE ${NUVRA_WARNINGS} -Werror)
endfunction()

function(nuvra_warnings target)
    target_compile_options(${target} PRIVATE ${NUVRA_WARNINGS})
endfunction()
