# The warnings that our own code is built with. Off in a build that someone else's project includes.
option(CORVALEN_WERROR "Treat warnings in our own code as errors" ${PROJECT_IS_TOP_LEVEL})

function(corvalen_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow)
    if(CORVALEN_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()
