# What the headers of TevTools::Qt include, and what the library is linked with.
find_package(Qt6 6.4 QUIET COMPONENTS Core Widgets)
if(NOT Qt6_FOUND)
    set(TevTools_missing "Qt 6.4 with Widgets")
endif()
