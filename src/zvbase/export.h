// Marks of the symbols that libzvbase exports. All other symbols are hidden (extenders).
//
// Class templates have a mark of their own: on Windows each explicit instantiation says which
// library exports it.
#pragma once

#if defined(_WIN32)
#define ZVBASE_TEMPLATE_EXPORT
#if defined(ZVBASE_BUILDING)
#define ZVBASE_EXPORT __declspec(dllexport)
#else
#define ZVBASE_EXPORT __declspec(dllimport)
#endif
#else
/// Exports a class, function or variable from libzvbase.
#define ZVBASE_EXPORT __attribute__((visibility("default")))
/// Exports a class template. On Windows its explicit instantiations are exported instead.
#define ZVBASE_TEMPLATE_EXPORT ZVBASE_EXPORT
#endif
