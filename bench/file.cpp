// What a file costs: reads by key, each on its own, and upserts in one transaction, by hand and by the kit. Prints
// WORK/LAYER and the nanoseconds of processor time of one, the median of so many rounds, in which the layers take
// turns.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "works.h"

namespace {

constexpr int kMostRounds = 100;

double ProcessorTime() {
  std::timespec now{};
  if (clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now) != 0) bench::Fail("clock_gettime");
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// Nanoseconds of one.
double Measure(const bench::Work& work, std::int64_t times) {
  const double begin = ProcessorTime();
  work(times);
  return (ProcessorTime() - begin) / static_cast<double>(times);
}

double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
  return values[values.size() / 2];
}

struct Times {
  std::vector<double> reads;
  std::vector<double> upserts;
};

// A file of its own, with a part for each read.
class Subject {
 public:
  Subject(const bench::LayerMaker& maker, const std::string& path, std::int64_t rows)
      : fLayer(maker.make(bench::Place{path, false})) {
    for (const std::string& statement : bench::TableOfParts(rows)) fLayer->Send(statement);
    fFind = fLayer->FindByInteger();
    fUpsert = fLayer->Upsert();
  }

  void Measure(Times& times, std::int64_t reads, std::int64_t upserts) {
    times.reads.push_back(::Measure(fFind, reads));
    fLayer->Send("BEGIN");
    times.upserts.push_back(::Measure(fUpsert, upserts));
    fLayer->Send("COMMIT");
  }

 private:
  std::unique_ptr<bench::Layer> fLayer;
  bench::Work fFind;
  bench::Work fUpsert;
};

// Removed with all that is in it.
class Folder {
 public:
  Folder() : fPath((std::filesystem::temp_directory_path() / "sqldb-bench-XXXXXX").string()) {
    if (mkdtemp(fPath.data()) == nullptr) bench::Fail("mkdtemp");
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(fPath, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string File(const std::string& name) const { return fPath + "/" + name; }

 private:
  std::string fPath;
};

void Print(const char* work, const char* layer, const std::vector<double>& times) {
  std::printf("%s/%s %.1f\n", work, layer, Median(times));
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::stoi(argv[1]) : 6;
  const std::int64_t reads = argc > 2 ? std::stoll(argv[2]) : 1000000;
  const std::int64_t upserts = reads / 5;
  if (rounds < 1 || rounds > kMostRounds || upserts < 1) bench::Fail("usage: bench_file [ROUNDS [READS]]");

  const Folder folder;
  std::vector<const bench::LayerMaker*> layers;
  std::vector<std::unique_ptr<Subject>> subjects;
  for (const bench::LayerMaker& layer : bench::Layers()) {
    if (layer.make != &bench::MakeByHand && layer.make != &bench::MakeKit) continue;
    layers.push_back(&layer);
    subjects.push_back(std::make_unique<Subject>(layer, folder.File(layer.name), reads));
  }
  std::map<const bench::LayerMaker*, Times> times;
  // The first round fills the caches. Whoever comes second finds what the first has left the system to write: each is
  // that in every other round.
  for (int round = 0; round <= rounds; ++round) {
    for (std::size_t i = 0; i < layers.size(); ++i) {
      const std::size_t turn = round % 2 == 0 ? i : layers.size() - 1 - i;
      Times first;
      subjects[turn]->Measure(round == 0 ? first : times[layers[turn]], reads, upserts);
    }
  }
  for (const bench::LayerMaker* const layer : layers) {
    Print("read by key, on a file", layer->name, times[layer].reads);
    Print("upsert, on a file", layer->name, times[layer].upserts);
  }
}
