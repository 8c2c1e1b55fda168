// Without services the process ends as plainly as it can.
#include "common/failure.h"

#include <cstdlib>

const failure_services_t *failure_services;

void failure_no_memory()
{
    if (failure_services)
        failure_services->no_memory();
    failure_stop(1);   // without any catalogue no message is fatal
}

void failure_stop(int status)
{
    if (failure_services)
        failure_services->stop(status);
    exit(status);
}
