# cmake -DMODULE=... -DVERSION=... -P find_library.cmake: what the build says when it finds that library.
cmake_minimum_required(VERSION 3.23)
include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/libraries.cmake)
senvo_found_library(${MODULE} ${VERSION})
