// Marks of the symbols that libzvresmgt exports. All other symbols are hidden (extenders).
#pragma once

#if defined(_WIN32)
#if defined(ZVRESMGT_BUILDING)
#define ZVRESMGT_EXPORT __declspec(dllexport)
#else
#define ZVRESMGT_EXPORT __declspec(dllimport)
#endif
#else
/// Exports a class, function or template instance from libzvresmgt.
#define ZVRESMGT_EXPORT __attribute__((visibility("default")))
#endif
