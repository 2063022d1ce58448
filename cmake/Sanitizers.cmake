# CORVALEN_SANITIZE: "address,undefined", "thread" or empty; for every target of the build.
set(CORVALEN_SANITIZE "" CACHE STRING "Sanitizers for the whole build, separated by commas")

if(CORVALEN_SANITIZE)
    add_compile_options(-fsanitize=${CORVALEN_SANITIZE} -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${CORVALEN_SANITIZE})
    if(CORVALEN_SANITIZE MATCHES "undefined")
        add_compile_options(-fno-sanitize-recover=undefined)
        # To find null, GCC relies on the flags of the addition that makes the address of a thread_local, for
        # which the linker puts in an instruction that leaves the flags alone: addresses look null by chance.
        # AddressSanitizer tells of every real access through null anyway.
        if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            add_compile_options(-fno-sanitize=null)
        endif()
    endif()
    # ThreadSanitizer does not model fences. Ours order atomic accesses only, of which it needs no order.
    if(CORVALEN_SANITIZE MATCHES "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        add_compile_options(-Wno-tsan)
    endif()
endif()
