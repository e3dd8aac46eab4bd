# Libraries that bring no usable CMake package of their own.

# TinyXML 2.6, built with its STL interface.
find_path(TINYXML_INCLUDE_DIR tinyxml.h REQUIRED)
find_library(TINYXML_LIBRARY tinyxml REQUIRED)
add_library(kelvo_tinyxml INTERFACE)
target_include_directories(kelvo_tinyxml SYSTEM INTERFACE ${TINYXML_INCLUDE_DIR})
target_compile_definitions(kelvo_tinyxml INTERFACE TIXML_USE_STL)
target_link_libraries(kelvo_tinyxml INTERFACE ${TINYXML_LIBRARY})

# wxWidgets, base library only.
add_library(kelvo_wx INTERFACE)
target_include_directories(kelvo_wx SYSTEM INTERFACE ${wxWidgets_INCLUDE_DIRS})
target_compile_definitions(kelvo_wx INTERFACE ${wxWidgets_DEFINITIONS} wxUSE_GUI=0)
target_link_libraries(kelvo_wx INTERFACE ${wxWidgets_LIBRARIES})
