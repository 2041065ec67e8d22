// The wall clock as the agent's reports see it (the time stamp of a user's answer), behind an interface
// so that tests can fix it.
#pragma once

#include <chrono>

namespace QZRI {

class Clock
{
public:
    virtual ~Clock() = default;
    virtual std::chrono::system_clock::time_point Now() = 0;
};

class SystemClock : public Clock
{
public:
    std::chrono::system_clock::time_point Now() override { return std::chrono::system_clock::now(); }
};

}  // namespace QZRI
