#include "host/commands.h"

int main(int argc, char** argv) {
  return samplehost::RunCommandLine(argc, argv);
}
