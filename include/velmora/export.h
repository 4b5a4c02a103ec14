/** @file
 ** @file
 * The library hides every symbol by default; this marks the public ones. */
#ifndef VELMORA_EXPORT_H
#define VELMORA_EXPORT_H

/** Gives a declaration default visibility. */
#define VELMORA_EXPORT __attribute__((visibility("default")))

#endif
