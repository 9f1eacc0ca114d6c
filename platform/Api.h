#pragma once
// Visibility of the library's public classes and functions. The library is
// built with hidden visibility; everything a host may call carries TEZ_API.

#if defined(_WIN32)
#    if defined(TEZ_BUILDING_LIBRARY)
#        define TEZ_API __declspec(dllexport)
#    else
#        define TEZ_API __declspec(dllimport)
#    endif
#else
#    define TEZ_API __attribute__((visibility("default")))
#endif
