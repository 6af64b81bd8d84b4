# The libraries of other people that the library's objects call. Only platform/ includes their headers.

find_package(Threads REQUIRED)
find_package(ZLIB REQUIRED)
find_package(BZip2 REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(PkgConfig REQUIRED)
# Debian's CMake packages of these two require programs that their -dev packages do not install.
pkg_check_modules(Zstd REQUIRED IMPORTED_TARGET libzstd)
pkg_check_modules(LibZip REQUIRED IMPORTED_TARGET libzip)
pkg_check_modules(Lzma REQUIRED IMPORTED_TARGET liblzma)
find_package(Miniz) # without it, the library reads all archives itself
find_package(OpenMP REQUIRED COMPONENTS CXX)
find_package(OpenSSL 3) # which libzip may be built with

set(tevtools_dependencies
    Threads::Threads ZLIB::ZLIB BZip2::BZip2 SQLite::SQLite3 PkgConfig::Zstd PkgConfig::LibZip PkgConfig::Lzma)
if(TARGET OpenSSL::Crypto)
    list(APPEND tevtools_dependencies OpenSSL::Crypto)
endif()

function(tevtools_link_dependencies target)
    target_link_libraries(${target} PUBLIC ${tevtools_dependencies} ${OpenMP_CXX_LIBRARIES})
    if(TARGET Miniz::Miniz)
        target_link_libraries(${target} PUBLIC Miniz::Miniz)
        target_compile_definitions(${target} PRIVATE TEVTOOLS_MINIZ)
    endif()
    if(TARGET OpenSSL::Crypto)
        target_compile_definitions(${target} PRIVATE TEVTOOLS_OPENSSL)
    endif()
endfunction()
