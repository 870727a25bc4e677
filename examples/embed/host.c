/* A host program with an embedded fat binary. It prints the descriptor and writes the embedded
   bytes to the file that its argument names. It compiles as C and as C++, with either form of
   fatbin.inc.
 */

#include <stdio.h>

/* This program has its own definitions instead of fatbinary_section.h. */
#define __SKIP_INTERNAL_FATBINARY_HEADERS

typedef struct {
  int magic;
  int version;
  const unsigned long long* data;
  void* linked;
} __fatBinC_Wrapper_t;

/* Only the linked form uses it. */
void* __cudaPrelinkedFatbins[1];

#include "fatbin.inc"

static void ShowDescriptor(const __fatBinC_Wrapper_t* descriptor, size_t size) {
  const unsigned char* bytes = (const unsigned char*)descriptor->data;
  size_t i;
  printf("magic     0x%08x\n", (unsigned)descriptor->magic);
  printf("version   %d\n", descriptor->version);
  printf("linked    %s\n", descriptor->linked == (void*)__cudaPrelinkedFatbins ? "yes" : "no");
  printf("address   %p\n", (const void*)bytes);
  printf("size      %lu\n", (unsigned long)size);
  printf("begins    ");
  for (i = 0; i < 24 && i < size; ++i) {
    putchar(bytes[i] >= ' ' && bytes[i] <= '~' ? bytes[i] : '.');
  }
  putchar('\n');
}

static int WriteBytes(const char* name, const void* bytes, size_t size) {
  FILE* file = fopen(name, "wb");
  int is_written;
  if (file == NULL) {
    return 0;
  }
  is_written = fwrite(bytes, 1, size, file) == size;
  return fclose(file) == 0 && is_written;
}

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s FILE\n", argv[0]);
    return 2;
  }
  ShowDescriptor(&__fatDeviceText, sizeof(fatbinData));
  if (!WriteBytes(argv[1], __fatDeviceText.data, sizeof(fatbinData))) {
    perror(argv[1]);
    return 1;
  }
  return 0;
}
