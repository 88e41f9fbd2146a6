# Rules for every target of the project: language, warnings, include root.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# Programs and libraries stand side by side in the build tree, as the programs expect after installation too.
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR}")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")

# The libraries that an installed target finds beside itself, in the build tree by the same relative path: a path of the
# build tree's own would be padded with an empty element, which the loader takes for the current directory.
function(nivex_search_path target path)
    set_target_properties(${target} PROPERTIES BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "${path}")
endfunction()

include(CheckPIESupported)
check_pie_supported()

# For what is installed: against faults that are used to get in.
add_library(nivex_hardening INTERFACE)
target_compile_options(
    nivex_hardening INTERFACE -fstack-protector-strong
                              "$<$<CONFIG:Release,RelWithDebInfo>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
target_link_options(nivex_hardening INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)

add_library(nivex_rules INTERFACE)
target_include_directories(nivex_rules INTERFACE "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/include")
target_compile_options(
    nivex_rules
    INTERFACE -Wall
              -Wextra
              -Wpedantic
              -Wshadow
              -Wconversion
              -Wsign-conversion
              -Wcast-align
              -Wformat=2
              -Wundef
              $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
              $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
              $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
              $<$<BOOL:${NIVEX_QOS_WERROR}>:-Werror>)
