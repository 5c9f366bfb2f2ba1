# What each kind of target may use and how it is compiled.

set(PLOV_WARNINGS -Wall -Wextra -Wshadow -Wformat=2 -Wno-format-nonliteral -Wvla -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  set(PLOV_WARNINGS -Wall -Wextra -Wshadow -Wno-format-nonliteral -Werror)
endif()

# The libraries: no exceptions, no run-time types, nothing visible but what is marked.
function(plov_product target)
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/platform
                             PRIVATE ${PROJECT_SOURCE_DIR})
  target_compile_options(${target} PRIVATE ${PLOV_WARNINGS} -Wcast-align -fvisibility=hidden $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions
                         -fno-rtti -fvisibility-inlines-hidden>)
endfunction()

# A tool: exceptions allowed (its libraries throw), only the public headers in reach.
function(plov_tool target)
  target_compile_options(${target} PRIVATE ${PLOV_WARNINGS})
  target_link_libraries(${target} PRIVATE plovsp1 plovplatform)
endfunction()
