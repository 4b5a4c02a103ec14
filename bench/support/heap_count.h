/* The heap a benchmark's own calls take, counted through this program's
 * own malloc (glibc lets a program replace it): bytes held now and the
 * peak since counting started. */
#ifndef VELMORA_BENCH_HEAP_COUNT_H
#define VELMORA_BENCH_HEAP_COUNT_H

/* Counts from zero until heap_count_stop. */
void heap_count_start();
void heap_count_stop();
/* Bytes allocated and not freed since the start, and their peak. */
long heap_count_now();
long heap_count_peak();

#endif
