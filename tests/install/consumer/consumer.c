/* The C interface from an installed tree: the header compiles as C and the
 * library answers. */
#include <pelarix.h>
#include <stdio.h>

int main(void) {
  uint32_t version = Pelarix_GetVersion();
  printf("pelarix interface version %u\n", (unsigned)version);
  return version == PELARIX_INTERFACE_VERSION ? 0 : 1;
}
