/*
 * kt.h - the whole public interface of the KT common module
 * (libvlnvktosx). Include this, or only the subsystem headers you use.
 *
 * Threads. Every exported function may be called from any thread.
 *
 * - Calls on different zones, different file numbers or different contexts
 *   run concurrently and correctly.
 * - Calls on the same zone number, or the same file number, from two threads
 *   at once are serialised by the library: each call runs whole, before or
 *   after the other, never torn. A sequence of calls (build a zone, then
 *   walk it) is the caller's to keep together: another thread's calls on
 *   the same number may come between two of them.
 * - A new zone or file takes the lowest number free at the moment of its
 *   call.
 * - The toolkit's contexts (kt_crypto.h) are caller-owned and the toolkit
 *   shares no state between threads (its one cache, of a public modulus,
 *   is per thread): it needs no lock, and a context is used by one thread
 *   at a time, as any caller-owned data.
 * - A single thread sees exactly what it saw before any of this: the same
 *   statuses, outputs, files and trace lines. The process-wide quirks stay
 *   quirks of one thread's calls:
 *   - the pending table size (KT_usEcrireEnteteTable) is written into the
 *     file that the same thread closes next;
 *   - the trace depth is counted per thread: each thread's trace lines are
 *     indented by its own nesting;
 *   - the start-up counter is one per process: starts and stops from any
 *     threads count exactly, and the last stop releases the dictionary.
 * - Each trace event is written whole; lines of different threads never run
 *   together. A line that a caller assembles itself from
 *   KT_TraceDebutLigne, KT_TraceEcrire... and KT_TraceFinLigne is written
 *   piece by piece and may meet other threads' lines.
 * - The running total and the peak of KT_Allouer and KT_Liberer stay exact
 *   (the exported ulMemAllouee and ulMaxAlloue are not those totals: they
 *   stay 0, as ever).
 * - The dictionary's exported g_ tables are read without any lock: read
 *   them only while a start of your own is in force.
 */
#ifndef KT_H
#define KT_H

#include "kt_frame.h"
#include "kt_traces.h"
#include "kt_zones.h"
#include "kt_checks.h"
#include "kt_crypto.h"
#include "kt_binfiles.h"
#include "kt_dictionary.h"

#endif /* KT_H */
