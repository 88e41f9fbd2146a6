# What is installed beside the programs and libraries, and two Debian packages of all that is installed: `make package`,
# or `cpack` in a build directory. Everything belongs to one of two components, which are the packages:
#   plugin  nivex-qos-plugin  what a device takes, which has a libdb_qos of its own
#   host    nivex-qos-host    what runs the plug-in on any machine
set(components plugin)
if(NIVEX_QOS_DEVHOST)
    list(APPEND components host)
endif()

# Documents, examples and schema lie in the package as they do in the sources, so that the links between them hold.
set(documents "${CMAKE_INSTALL_DATADIR}/nivex-qos")

# docs/man/PROGRAM.1, compressed as Debian keeps them, and made with the program.
function(install_manual_page program)
    find_program(GZIP_PROGRAM gzip REQUIRED)
    set(source "${PROJECT_SOURCE_DIR}/docs/man/${program}.1")
    set(page "${PROJECT_BINARY_DIR}/packaging/${program}.1.gz")
    add_custom_command(
        OUTPUT "${page}"
        COMMAND "${GZIP_PROGRAM}" -9nc "${source}" > "${page}"
        DEPENDS "${source}"
        VERBATIM)
    add_custom_target(${program}.1 DEPENDS "${page}")
    add_dependencies(${program} ${program}.1)
    install(FILES "${page}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT host)
endfunction()

# The plug-in.
install(DIRECTORY include/nivex_qos platform DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/nivex-qos-plugin"
        COMPONENT plugin)
# Relative, as a package is installed under another prefix than it is built for.
file(RELATIVE_PATH prefix_from_pkgconfig "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
configure_file(packaging/nivex-qos-plugin.pc.in packaging/nivex-qos-plugin.pc @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/packaging/nivex-qos-plugin.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
        COMPONENT plugin)
install(FILES CHANGELOG.md DESTINATION "${documents}" COMPONENT plugin)
install(FILES docs/fuzzing.md docs/integration.md docs/performance.md docs/reliability.md
        DESTINATION "${documents}/docs" COMPONENT plugin)
install(DIRECTORY docs/samples DESTINATION "${documents}/docs" COMPONENT plugin)
install(FILES examples/host.c examples/db_qos.c DESTINATION "${documents}/examples" COMPONENT plugin)
install(FILES schema/vexlor_qos.proto schema/vexlor-qos.yang DESTINATION "${documents}/schema" COMPONENT plugin)

# The host.
if(NIVEX_QOS_DEVHOST)
    install(FILES docs/capture.md docs/host.md DESTINATION "${documents}/docs" COMPONENT host)
    install_manual_page(qos-host)
endif()
if(TARGET qos-agent)
    install(FILES docs/agent.md DESTINATION "${documents}/docs" COMPONENT host)
    install(DIRECTORY docs/prometheus DESTINATION "${documents}/docs" COMPONENT host)
    install_manual_page(qos-agent)
    set(service "${PROJECT_SOURCE_DIR}/packaging/qos-agent")
    install(FILES "${service}/qos-agent.service" DESTINATION lib/systemd/system COMPONENT host)
    # To /etc where programs go to /usr, else below the prefix.
    install(CODE "string(REGEX REPLACE \"^/usr/etc$\" /etc etc \"\${CMAKE_INSTALL_PREFIX}/etc\")
                  file(INSTALL \"${service}/agent.yaml\" DESTINATION \"\${etc}/nivex-qos\")" COMPONENT host)
endif()

# Debian looks for them under the package's name.
foreach(component IN LISTS components)
    set(link "${PROJECT_BINARY_DIR}/packaging/nivex-qos-${component}")
    file(CREATE_LINK ../nivex-qos "${link}" SYMBOLIC)
    install(FILES "${link}" DESTINATION "${CMAKE_INSTALL_DATADIR}/doc" COMPONENT ${component})
endforeach()

# What is packed has been built before, by this target or with all others, and only that.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
add_custom_target(packaged)
foreach(target nivex_qos_plugin qos-host qos-agent)
    if(TARGET ${target})
        add_dependencies(packaged ${target})
    endif()
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_PACKAGE_CONTACT "The developers of nivex-qos <nivex-qos@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each has its own
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
# The linked libraries are found by themselves, libdb_qos among those of the build, or where the device's was named.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
if(NOT NIVEX_QOS_DEVHOST)
    cmake_path(GET NIVEX_QOS_DB_LIBRARY PARENT_PATH db_directory)
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${db_directory}")
endif()
# Both were one package, nivex-qos. With these two words Debian removes it where one of them is installed.
set(CPACK_DEBIAN_PACKAGE_CONFLICTS nivex-qos)
set(CPACK_DEBIAN_PACKAGE_REPLACES nivex-qos)
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME nivex-qos-plugin)
set(CPACK_DEBIAN_PLUGIN_DESCRIPTION
    "${PROJECT_DESCRIPTION}
The shared library that a telemetry framework loads, with the headers, schema,
examples and documents for it. It reads the device's QoS statistics through a
libdb_qos.so, which this package does not hold.")
# cJSON is opened under the name that the development package holds.
set(CPACK_DEBIAN_PLUGIN_PACKAGE_DEPENDS libcjson-dev)

set(CPACK_DEBIAN_HOST_PACKAGE_NAME nivex-qos-host)
set(CPACK_DEBIAN_HOST_DESCRIPTION
    "host for the QoS telemetry plug-in on any Linux machine
qos-host loads the plug-in as a device does, over the kernel's own counters or
a simulated device. libdb_qos.so here reads a SQLite file: a device with a
libdb_qos.so of its own does without this package.")
set(CPACK_DEBIAN_HOST_PACKAGE_DEPENDS "nivex-qos-plugin (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_HOST_PACKAGE_RECOMMENDS iproute2) # the demo compares itself with tc
if(TARGET qos-agent)
    string(APPEND CPACK_DEBIAN_HOST_DESCRIPTION "\nqos-agent does so all day, as a service, for whoever subscribes.")
    set(CPACK_DEBIAN_HOST_PACKAGE_CONTROL_EXTRA conffiles postinst postrm prerm)
    list(TRANSFORM CPACK_DEBIAN_HOST_PACKAGE_CONTROL_EXTRA PREPEND "${service}/")
    set(CPACK_DEBIAN_HOST_PACKAGE_CONTROL_STRICT_PERMISSION ON)
endif()
include(CPack)
