/* An empty program, the least that any costs: ends at once, or waits if given an argument. */
#include <unistd.h>

int main(int argc, char** argv) {
  (void)argv;
  return argc > 1 ? pause() : 0;
}
