/* base/ticks.h - clock ticks in messages. */
#ifndef ORV_BASE_TICKS_H
#define ORV_BASE_TICKS_H

#include <stdint.h>
#include <time.h>

/* The difference of two counts of ticks, 100 a second, in milliseconds. */
inline unsigned long milliseconds(clock_t from, clock_t to)
{
    constexpr uint32_t millisecondsPerTick = 10;
    const uint32_t ticks = static_cast<uint32_t>(to) - static_cast<uint32_t>(from);
    const uint32_t result = ticks * millisecondsPerTick;
    return result;
}

#endif
