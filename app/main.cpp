// Program entry: hands the process arguments to the application and turns an escaped failure
// into a printed report and a non-zero exit status.
#include "app/entry.h"

int main(int argc, char** argv) { return qv::run_program(argc, argv); }
