# 32-bit Windows (the DLL the editor loads): see mingw.cmake.
set(CMAKE_SYSTEM_PROCESSOR i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
