#include "brenlo/src/kadrix.h"

int main(int argument_count, char** arguments) { return run_kadrix(argument_count, arguments); }
