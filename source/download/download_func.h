// Downloads that the remote management server ordered: the op function, and the thread of an order.
#pragma once

#include "ams_common_api.h"

int FuncKVO_TR69Download(OpFuncArg *arg);

/* Carries out the order that the data model holds when it starts. A thread of its own an order;
   nothing is shared between two. Takes a sem_t, which it posts when it has read the order and then
   leaves alone, or NULL. Returns NULL. */
void *tr069_download_image_thread(void *order_read);
