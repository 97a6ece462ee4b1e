# The library's sizes and the stack of its functions beside docs/size.md.
set(machine ${CMAKE_SYSTEM_PROCESSOR} ${CMAKE_CXX_COMPILER} ${CMAKE_READELF}
            ${PROJECT_SOURCE_DIR}/src $<TARGET_FILE:iv> $<TARGET_OBJECTS:iv_objects>)
foreach(level ${LIBIV_LEVELS})
    list(APPEND machine $<TARGET_OBJECTS:iv_kernels_${level}>)
endforeach()
add_test(NAME Package.SizeAndStackAreThoseOfTheDocument
         COMMAND ${checks}/size.py check ${PROJECT_SOURCE_DIR}/docs/size.md ${machine}
         COMMAND_EXPAND_LISTS)
set_tests_properties(Package.SizeAndStackAreThoseOfTheDocument PROPERTIES SKIP_RETURN_CODE 77)
add_custom_target(measure_size
                  COMMAND ${checks}/size.py measure ${PROJECT_BINARY_DIR}/size.json ${machine}
                  DEPENDS iv COMMAND_EXPAND_LISTS VERBATIM)
