// A handle is copied and dropped while another handle owns the object. There is a table for one
// thread and a table for two, because std::shared_ptr counts without atomic operations as long as a
// process has one thread.

#include "Machine.h"
#include "Measure.h"

#include <KestroRefcounted>
#include <memory>

using namespace bench;

namespace {

constexpr int Copies = 20'000'000;

struct Shared : Kestro::RefImpl {
    std::uint64_t value = 3;
};

std::uint64_t readValue(const std::shared_ptr<Shared>& copy)
{
    return copy->value;
}

std::uint64_t readValue(const Kestro::Ref<Shared>& copy)
{
    return copy->value;
}

template <class Handle> std::uint64_t copies(int number)
{
    const Handle owner(new Shared);
    std::uint64_t checksum = 0;
    for (int i = 0; i < number; ++i) {
        const Handle copy = owner; // NOLINT(performance-unnecessary-copy-initialization)
        checksum += readValue(copy);
    }
    return checksum;
}

template <class Handle> std::uint64_t copiesBesideThread(int number)
{
    const IdleThread other;
    return copies<Handle>(number);
}

} // namespace

int main(int argc, char** argv)
{
    return run(argc, argv,
               {{"20,000,000 copies of a handle, one thread",
                 Copies,
                 {{"shared_ptr", copies<std::shared_ptr<Shared>>},
                  {"kestro", copies<Kestro::Ref<Shared>>}}},
                {"20,000,000 copies of a handle, another thread waiting",
                 Copies,
                 {{"shared_ptr", copiesBesideThread<std::shared_ptr<Shared>>},
                  {"kestro", copiesBesideThread<Kestro::Ref<Shared>>}}}});
}
