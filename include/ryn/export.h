/* Marks the functions that the ryn shared libraries export. */
#ifndef RYN_EXPORT_H
#define RYN_EXPORT_H

#if defined(__GNUC__)
#define RYN_EXPORT __attribute__((visibility("default")))
#else
#define RYN_EXPORT
#endif

#endif
