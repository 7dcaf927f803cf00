# What the application says of itself and of its build: in the programs, and in a bundle's Info.plist.
set(KELPMORAY_IDENTIFIER com.quenbark.kelpmoray)
set(KELPMORAY_BUILD_TOOL ${CMAKE_CXX_COMPILER_ID}-${CMAKE_CXX_COMPILER_VERSION})
string(TOLOWER ${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR} KELPMORAY_BUILD_KIT)
