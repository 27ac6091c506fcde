/*
 * lsr.h - sorting and binary search of arrays of fixed-size elements.
 *
 * The sort is an in-place heapsort: it needs no memory beyond the array and
 * has no quadratic worst case (n log n comparisons at most). It is not
 * stable: elements that compare equal may change their relative order, and
 * which order they end in is fixed by the algorithm, the same on every run
 * and platform.
 *
 * A comparison returns a value greater than 0 when its first element sorts
 * after the second, 0 when they are equal and below 0 otherwise. Comparisons
 * are only ever given addresses of elements inside the array (and, for the
 * search, the key). The functions are thread-safe as long as no other thread
 * writes the same array.
 */
#ifndef LSR_H
#define LSR_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"

KEL_BEGIN_DECLS

/* compare(a, b) for lsrsrt. */
typedef int32_t (*lsrcmp)(const void *a, const void *b);

/* compare(context, a, b) for lsrsrx and lsrbsx. */
typedef int32_t (*lsrcmpx)(void *context, const void *a, const void *b);

/* Sorts `count` elements of `size` bytes at `base` into ascending order of
 * `compare`, in place. Fewer than two elements, a size of 0 or a null
 * compare leave the array untouched (and compare is not called). */
KELAPI void lsrsrt(void *base, size_t count, size_t size, lsrcmp compare);

/* As lsrsrt, with `context` passed unchanged as the first argument of every
 * comparison. The same elements end in the same order as with lsrsrt. */
KELAPI void lsrsrx(void *base, size_t count, size_t size, lsrcmpx compare, void *context);

/* Binary search of `key` in the `count` elements of `size` bytes at `base`,
 * which must be sorted ascending for compare(context, key, element).
 * Returns the address of an element that compares equal to the key (with
 * duplicates, whichever of them the probes meet first, not necessarily the
 * first), or null when there is none, when count is 0, or compare is null.
 * The array is not written. */
KELAPI void *lsrbsx(const void *key, const void *base, size_t count, size_t size, lsrcmpx compare,
                    void *context);

KEL_END_DECLS

#endif /* LSR_H */
