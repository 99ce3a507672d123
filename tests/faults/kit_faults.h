#ifndef SQLDB_TESTS_KIT_FAULTS_H
#define SQLDB_TESTS_KIT_FAULTS_H

// Interrupts the scenarios of the kit at every point at which something can fail, and looks at what each failure has
// left: of the file, of the connection, and of what the same objects do afterwards.

#include <string>

#include "faults/kit_scenarios.h"
#include "faults/scenarios.h"
#include "support/temporary_folder.h"

namespace faults {

// What fails at the n-th point of the work.
class Faults {
 public:
  Faults() = default;
  virtual ~Faults() = default;
  Faults(const Faults&) = delete;
  Faults& operator=(const Faults&) = delete;

  // The n-th point from now on fails, 1 for the next, and every one after it too if `persistent`. 0: none fails.
  virtual void Arm(int n, bool persistent) = 0;
  virtual void Disarm() = 0;
  // While paused, points neither count nor fail.
  virtual void Pause(bool isPaused) = 0;
  // How many points there were since Arm, and whether one of them failed. Valid after Disarm.
  virtual int Count() const = 0;
  virtual bool HasFailed() const = 0;
};

// Runs scenarios, on a new copy of the stock each time.
class KitFaults {
 public:
  // At most `mostOnce` and `mostPersistent` points of a scenario fail.
  KitFaults(Faults& faults, int mostOnce, int mostPersistent);

  // Fails at every point of every scenario.
  void FailEverywhere();

  // Prints what was found, and fails the test unless there were as many points, in as many scenarios, and nothing was
  // wrong.
  void ExpectHarmless(const char* name, int fewestPoints, int fewestScenarios) const;

 private:
  struct Undisturbed {
    int count;
    std::string contents;
  };

  Undisturbed RunUndisturbed(const KitScenario& scenario);
  void FailAt(const KitScenario& scenario, const Undisturbed& undisturbed, int n, bool persistent);
  void Prepare(const KitScenario& scenario, KitWork& work);
  // Whether what is acknowledged is there for others.
  bool IsSound(KitWork& work);
  void LookForLeftovers(KitWork& work);
  void JudgeContents(const std::string& contents, Outcome outcome, const std::string& after);
  void Repeat(const KitScenario& scenario, KitWork& work, const std::string& after);

  Faults& fFaults;
  const int fMostOnce;
  const int fMostPersistent;
  support::TemporaryFolder fFolder;
  const std::string fStock = fFolder.Path("stock.db");
  const std::string fPath = fFolder.Path("work.db");
  const std::string fAbandoned = fFolder.Path("abandoned.db");
  std::string fBefore;
  int fScenarios = 0;
  int fPoints = 0;
  int fSurvived = 0;
  int fStrangers = 0;
  int fDamaged = 0;
  int fPartial = 0;
  int fLost = 0;
  int fLeftBehind = 0;
  int fUnusable = 0;
  int fRefusedCloses = 0;
  int fLeaks = 0;
};

}  // namespace faults

#endif  // SQLDB_TESTS_KIT_FAULTS_H
