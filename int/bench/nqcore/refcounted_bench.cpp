// Reference counting against boost::intrusive_ptr with an atomic counter.
#include "nqcore/refcounted.h"

#include <benchmark/benchmark.h>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>

namespace {

struct Ours : nqcore::RefCounted<nqcore::AtomicRefCount> {
    int payload = 1;
};
struct Peer : boost::intrusive_ref_counter<Peer, boost::thread_safe_counter> {
    virtual ~Peer() = default;
    int payload = 1;
};

template <class Ptr, class T>
void copy_and_drop(benchmark::State& state) {
    Ptr original(new T);
    for (auto _ : state) {
        Ptr copy(original);
        benchmark::DoNotOptimize(copy.get());
    }
}

template <class Ptr, class T>
void make_and_drop(benchmark::State& state) {
    for (auto _ : state) {
        Ptr made(new T);
        benchmark::DoNotOptimize(made.get());
    }
}

using OurPtr = nqcore::RefCountPtr<Ours>;
using PeerPtr = boost::intrusive_ptr<Peer>;

BENCHMARK(copy_and_drop<OurPtr, Ours>)->Name("refcounted/copy_drop/nqcore/pointer");
BENCHMARK(copy_and_drop<PeerPtr, Peer>)->Name("refcounted/copy_drop/boost/pointer");
BENCHMARK(make_and_drop<OurPtr, Ours>)->Name("refcounted/make_drop/nqcore/object");
BENCHMARK(make_and_drop<PeerPtr, Peer>)->Name("refcounted/make_drop/boost/object");

}  // namespace
