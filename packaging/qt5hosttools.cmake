# SPDX-License-Identifier: MIT
# Gives a cross build with Qt 5 this machine's code generators. Qt 5 would take the root's, which are programs for the board;
# it keeps a generator that is defined already.
if(NOT QT_MAJOR EQUAL 5)
    return()
endif()
foreach(tool qmake moc rcc qdbuscpp2xml qdbusxml2cpp)
    find_program(KADO_QT5_${tool} NAMES ${tool} PATHS /usr/lib/qt5/bin /usr/lib64/qt5/bin NO_DEFAULT_PATH)
    find_program(KADO_QT5_${tool} NAMES ${tool}-qt5 REQUIRED)
    add_executable(Qt5::${tool} IMPORTED)
    set_target_properties(Qt5::${tool} PROPERTIES IMPORTED_LOCATION "${KADO_QT5_${tool}}")
endforeach()
