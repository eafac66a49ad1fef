/*
 * kt_host_demo - a small host of the library: activates traces, allocates
 * and frees through the counted allocator and says where the trace went.
 * Usage: kt_host_demo [TRACE_FILE]   (default: kt_host_demo.trace in the
 * current directory)
 */
#include <stdio.h>
#include <string.h>

#include "kt.h"

int main(int argc, char** argv) {
  const char* trace_path = argc > 1 ? argv[1] : "kt_host_demo.trace";
  uint16_t status;
  char* full_name = NULL;
  void* block;

  status = KT_usActiverTrace(trace_path, "w", 1, 4, 2);
  if (status == KT_OK) status = KT_usActiverTrace(trace_path, "w", 1, 5, 2);
  if (status != KT_OK) {
    fprintf(stderr, "kt_host_demo: cannot activate traces in %s (status 0x%04X)\n", trace_path,
            (unsigned)status);
    return 1;
  }
  KT_TraceEcrire(1, 5, 0, "kt_host_demo: start");

  block = KT_Allouer(100);
  if (block == NULL) {
    fprintf(stderr, "kt_host_demo: allocation failed\n");
    return 1;
  }
  memset(block, 0, 100);
  status = KT_usCreerNomCompletFichier("/tmp", "example.bin", &full_name);
  printf("joined path: %s (status 0x%04X)\n", full_name != NULL ? full_name : "(none)",
         (unsigned)status);
  KT_Liberer(full_name);
  KT_Liberer(block);

  status = KT_usActiverTrace(trace_path, "w", 1, 5, 0);
  printf("trace file: %s (closed with status 0x%04X)\n", trace_path, (unsigned)status);
  return status == KT_OK ? 0 : 1;
}
