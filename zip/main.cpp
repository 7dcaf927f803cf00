#include "zip/CommandLine.h"

int main(int argc, char** argv) {
    return zip::runCommandLine(argc, argv);
}
