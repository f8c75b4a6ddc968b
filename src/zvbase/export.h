// What libzvbase shows to others. Whatever is not marked stays inside.
//
// A class template is marked by the form of its own: on Windows each instance says for itself whose it is.
#pragma once

#if defined(_WIN32)
#define ZVBASE_TEMPLATE_EXPORT
#if defined(ZVBASE_BUILDING)
#define ZVBASE_EXPORT __declspec(dllexport)
#else
#define ZVBASE_EXPORT __declspec(dllimport)
#endif
#else
#define ZVBASE_EXPORT __attribute__((visibility("default")))
#define ZVBASE_TEMPLATE_EXPORT ZVBASE_EXPORT
#endif
