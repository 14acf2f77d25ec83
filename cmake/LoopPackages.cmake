# Libraries with event loops of their own, for the examples and tests that put ours into them. None is needed: what a
# missing one is for is left out, and its tests say so. `Tools/install-dependencies package` installs them.
pkg_check_modules(GLIB IMPORTED_TARGET "glib-2.0>=2.36")
pkg_check_modules(QT5CORE IMPORTED_TARGET Qt5Core)
if(TARGET PkgConfig::QT5CORE)
    # Debian builds Qt so that programs refer to it indirectly.
    set_property(TARGET PkgConfig::QT5CORE APPEND PROPERTY INTERFACE_COMPILE_OPTIONS -fPIC)
endif()
pkg_check_modules(SDL2 IMPORTED_TARGET "sdl2>=2.0.18")
pkg_check_modules(LIBUV IMPORTED_TARGET libuv)
