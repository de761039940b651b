// How the gateway does over the last minutes: a sample a second. Any thread.
#pragma once

/* A request that ended, and how long its client waited for it. */
void HealthCount(double total_ms);

/* Closes the sample of the second that is over. */
void HealthSample();
