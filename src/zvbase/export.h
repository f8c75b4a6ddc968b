// What libzvbase shows to others. Whatever is not marked stays inside.
#pragma once

#if defined(_WIN32)
#if defined(ZVBASE_BUILDING)
#define ZVBASE_EXPORT __declspec(dllexport)
#else
#define ZVBASE_EXPORT __declspec(dllimport)
#endif
#else
#define ZVBASE_EXPORT __attribute__((visibility("default")))
#endif
