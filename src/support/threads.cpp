#include "support/threads.h"

#include <pthread.h>

namespace kelo
{

bool thread_start_detached(void* (*body)(void*), void* argument)
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread = {};
    const int error = pthread_create(&thread, &attributes, body, argument);
    pthread_attr_destroy(&attributes);
    return error == 0;
}

} // namespace kelo
