# A Debian package of everything that is installed: `make package`, or `cpack` in a build directory.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME nivex-qos)
set(CPACK_PACKAGE_CONTACT "The developers of nivex-qos <nivex-qos@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION} with a development host")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
# The linked libraries are found by themselves; cJSON is opened under the name that the development package holds.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
set(CPACK_DEBIAN_PACKAGE_DEPENDS libcjson-dev)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS iproute2) # the demo compares itself with tc
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# What is packed has been built before, and only that.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
include(CPack)
