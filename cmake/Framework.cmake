# SPDX-License-Identifier: MIT
# The shared library as a framework bundle, with its headers as they stand; KMVDriveLibrary.h is the umbrella. CMake writes the
# property list and the bundle's links.
set_target_properties(KMVDriveLibrary PROPERTIES
  FRAMEWORK TRUE FRAMEWORK_VERSION A
  MACOSX_FRAMEWORK_IDENTIFIER com.orvane.KMVDriveLibrary
  MACOSX_FRAMEWORK_BUNDLE_VERSION ${PROJECT_VERSION}
  MACOSX_FRAMEWORK_SHORT_VERSION_STRING ${PROJECT_VERSION}
  INSTALL_NAME_DIR "@rpath" BUILD_WITH_INSTALL_NAME_DIR ON)
# Not PUBLIC_HEADER, which would put the headers of all folders into one.
target_sources(KMVDriveLibrary PRIVATE ${kmv_public_headers})
foreach(header IN LISTS kmv_public_headers)
  cmake_path(RELATIVE_PATH header BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/include/KMVDriveLibrary OUTPUT_VARIABLE place)
  cmake_path(REMOVE_FILENAME place)
  string(REGEX REPLACE "/$" "" place "Headers/${place}")
  set_source_files_properties(${header} PROPERTIES MACOSX_PACKAGE_LOCATION ${place})
endforeach()
