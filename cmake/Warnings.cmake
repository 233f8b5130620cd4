# Warnings are errors on the project's own targets; third-party headers come in
# as system includes and are not affected. -Wnull-dereference is left out:
# GCC 12 reports false positives inside std::shared_ptr at -O2 and above.
function(qxd_set_warnings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Werror
        -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-align
        -Woverloaded-virtual -Wimplicit-fallthrough
        -Wno-missing-field-initializers)
    if(QXD_FUZZ)
        # The fuzz build uses clang, whose warnings differ from GCC's; the
        # GCC builds keep them errors.
        target_compile_options(${target} PRIVATE -Wno-error)
    endif()
endfunction()
