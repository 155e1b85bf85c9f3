// Native buffer handle as in <cutils/native_handle.h>: a list of file
// descriptors followed by a list of integers.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef struct native_handle {
  int version; /* sizeof(native_handle_t) */
  int numFds;
  int numInts;
  int data[0]; /* numFds fds, then numInts ints */
} native_handle_t;

typedef const native_handle_t* buffer_handle_t;

native_handle_t* native_handle_create(int numFds, int numInts);
int native_handle_close(const native_handle_t* h);
int native_handle_delete(native_handle_t* h);

#ifdef __cplusplus
}
#endif
