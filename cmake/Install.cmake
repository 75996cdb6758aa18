# SPDX-License-Identifier: MIT
# What `cmake --install` puts where, and the package that find_package(KMVDriveLibrary 1) finds. Targets for hosts:
#   KMVDriveLibrary::KMVDriveLibrary  the shared library
#   KMVDriveLibrary::Static           the same in one file
#   KMVDriveLibrary::Simulated        the simulated machine, for hosts' tests; brings the shared library along
option(KMV_INSTALL "Install the libraries, the headers and the CMake package" ${PROJECT_IS_TOP_LEVEL})
if(NOT KMV_INSTALL)
  return()
endif()
include(CMakePackageConfigHelpers)

set(kmv_package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/KMVDriveLibrary)
install(TARGETS KMVDriveLibrary KMVDriveLibraryStatic KMVDriveLibrarySimulated EXPORT KMVDriveLibraryTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FRAMEWORK DESTINATION Library/Frameworks
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT KMVDriveLibraryTargets NAMESPACE KMVDriveLibrary:: DESTINATION ${kmv_package_folder})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/KMVDriveLibraryConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/KMVDriveLibraryConfig.cmake INSTALL_DESTINATION ${kmv_package_folder})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/KMVDriveLibraryConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KMVDriveLibraryConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/KMVDriveLibraryConfigVersion.cmake
        DESTINATION ${kmv_package_folder})
