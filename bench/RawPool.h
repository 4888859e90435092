#pragma once

#include "Peer.h"
#include "RawLink.h"

#include <condition_variable>
#include <mutex>
#include <vector>

namespace bench {

/// Connections of the raw client, lent under a mutex and a condition variable, as one would write a
/// pool by hand.
class RawPool : public Pool {
public:
    RawPool()
    {
        for (RawLink& link : m_links) {
            m_free.push_back(&link);
        }
    }

    RawLink* borrow()
    {
        std::unique_lock lock(m_mutex);
        m_returned.wait(lock, [this] { return !m_free.empty(); });
        RawLink* link = m_free.back();
        m_free.pop_back();
        return link;
    }
    void giveBack(RawLink* link)
    {
        {
            const std::lock_guard lock(m_mutex);
            m_free.push_back(link);
        }
        m_returned.notify_one();
    }

    bool cycle() override
    {
        RawLink* link = borrow();
        if (link->value(CycleStatement) != "1") {
            throw std::runtime_error("a statement failed");
        }
        giveBack(link);
        return true;
    }

private:
    std::vector<RawLink> m_links = std::vector<RawLink>(PoolSize);
    std::vector<RawLink*> m_free;
    std::mutex m_mutex;
    std::condition_variable m_returned;
};

} // namespace bench
