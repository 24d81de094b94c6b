// How long the list takes to read the Messages directory, and what the address book costs.
#include "BenchData.h"
#include "contacts/ContactStore.h"
#include "store/RecordingCatalogue.h"

#include <QFile>
#include <algorithm>
#include <benchmark/benchmark.h>

namespace {

constexpr int kRecordings = 10000;
constexpr int kContacts = 1000;

// Built once: writing 13,000 files is not what is measured.
const BenchData &data()
{
    static const BenchData fixture(kRecordings, kContacts);
    return fixture;
}

void BM_DirectoryFloor(benchmark::State &state)
{
    const std::string directory = QFile::encodeName(data().messagesDirectory()).toStdString();
    std::size_t recordings = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(recordings = BenchData::directoryFloor(directory));
    state.counters["recordings"] = double(recordings);
}
BENCHMARK(BM_DirectoryFloor)->Unit(benchmark::kMillisecond);

// The floor is measured again between the timed runs, so that the ratio compares the two
// under the same load on the machine. CPU time, as a busy machine inflates wall time unevenly.
void BM_CatalogueEntries(benchmark::State &state)
{
    if (!data().isValid()) {
        state.SkipWithError("could not write the recordings");
        return;
    }
    const ContactStore store({ data().contactsFile() }, QStringLiteral("US"));
    const RecordingCatalogue catalogue(&store);
    const std::string directory = QFile::encodeName(data().messagesDirectory()).toStdString();
    QList<Entry> entries;
    double catalogueTime = 0, floorTime = 0;
    for (auto _ : state) {
        const double start = BenchData::cpuSeconds();
        QList<Entry> fresh = catalogue.entries(data().messagesDirectory());
        benchmark::DoNotOptimize(fresh.constData());
        catalogueTime += BenchData::cpuSeconds() - start;
        // Freeing the previous list is the caller's cost, not the catalogue's: it counts in the
        // benchmark's time, as it always has, but not in the ratio to the floor.
        entries = std::move(fresh);

        state.PauseTiming();
        const double floorStart = BenchData::cpuSeconds();
        benchmark::DoNotOptimize(BenchData::directoryFloor(directory));
        floorTime += BenchData::cpuSeconds() - floorStart;
        state.ResumeTiming();
    }
    state.counters["floor_ms"] = floorTime * 1e3 / double(state.iterations());
    state.counters["x_floor"] = floorTime > 0 ? catalogueTime / floorTime : 0.0;
    // Shows that the contact matching did its work: about half the rows carry a name.
    state.counters["entries"] = double(entries.size());
    state.counters["with_contact"] = double(std::count_if(
        entries.cbegin(), entries.cend(), [](const Entry &e) { return e.name != e.address; }));
}
BENCHMARK(BM_CatalogueEntries)->Unit(benchmark::kMillisecond);

void BM_ContactStoreLoad(benchmark::State &state)
{
    qsizetype count = 0;
    for (auto _ : state) {
        const ContactStore store({ data().contactsFile() }, QStringLiteral("US"));
        count = store.count();
    }
    state.counters["contacts"] = double(count);
}
BENCHMARK(BM_ContactStoreLoad)->Unit(benchmark::kMillisecond);

// One look-up per iteration, cycling through every caller of the pool: the known and the
// unknown, numbers and handles.
void BM_ContactLookup(benchmark::State &state)
{
    const ContactStore store({ data().contactsFile() }, QStringLiteral("US"));
    const QStringList &callers = data().callers();
    qsizetype i = 0, found = 0;
    for (auto _ : state) {
        const Contact *contact = store.contactForDestinationId(callers[i]);
        benchmark::DoNotOptimize(contact);
        found += contact != nullptr;
        i = (i + 1) % callers.size();
    }
    state.counters["found_ratio"] = benchmark::Counter(double(found) / double(state.iterations()));
}
BENCHMARK(BM_ContactLookup)->Unit(benchmark::kNanosecond);

} // namespace

int main(int argc, char **argv)
{
    BenchData::setUpEnvironment();
    return BenchData::runBenchmarks(argc, argv);
}
