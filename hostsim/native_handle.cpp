// Native handles: a header, then numFds descriptors, then numInts integers.
#include <cutils/native_handle.h>
#include <unistd.h>

#include <cstdlib>

extern "C" native_handle_t* native_handle_create(int numFds, int numInts) {
  if (numFds < 0 || numInts < 0 || numFds > 1024 || numInts > 1024) return nullptr;
  const size_t bytes =
      sizeof(native_handle_t) + sizeof(int) * static_cast<size_t>(numFds + numInts);
  auto* h = static_cast<native_handle_t*>(std::calloc(1, bytes));
  if (h == nullptr) return nullptr;
  h->version = static_cast<int>(sizeof(native_handle_t));
  h->numFds = numFds;
  h->numInts = numInts;
  return h;
}

extern "C" int native_handle_close(const native_handle_t* h) {
  if (h == nullptr) return -1;
  int result = 0;
  for (int i = 0; i < h->numFds; ++i)
    if (close(h->data[i]) != 0) result = -1;
  return result;
}

extern "C" int native_handle_delete(native_handle_t* h) {
  if (h == nullptr) return 0;
  if (h->version != static_cast<int>(sizeof(native_handle_t))) return -1;
  std::free(h);
  return 0;
}
