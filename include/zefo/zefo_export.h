#ifndef ZEFO_ZEFO_EXPORT_H_
#define ZEFO_ZEFO_EXPORT_H_

// The libraries are built with hidden visibility; everything a host may use is marked here.
#if defined(__GNUC__)
#define ZEFO_EXPORT __attribute__((visibility("default")))
#else
#define ZEFO_EXPORT
#endif

#endif  // ZEFO_ZEFO_EXPORT_H_
