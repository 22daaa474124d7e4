#pragma once
// The host's command framework. A command is a class registered under a
// dotted id that works on a data object: the caller fills the data with input
// objects and settings, invokes the command by id, and reads the output
// objects, the data class's records and the state the run ended in from the
// same object. Data classes are registered under ids as well, so that a
// caller can make the data a command family expects without naming its type.
#include <functional>
#include <memory>
#include <vector>

#include "host/core/registry.h"
#include "host/core/result.h"
#include "host/core/thread.h"
#include "host/scene/basecontainer.h"

namespace zta {

class BaseObject;

// The state a run ends in.
enum class COMMANDRESULT : Int32 {
  OK = 0,     // ran; the outputs are its result
  SKIP = 1,   // there was nothing to do; no outputs
  BREAK = 2,  // stopped through its thread; the outputs hold what stood by then
};

// One record of a data class's list; each class derives its own.
class LegacyDataRecord {
 public:
  virtual ~LegacyDataRecord() = default;
};

// The base of every command data class: settings under numeric keys, input
// objects, output objects, and a list of records of the class's own type,
// addressed by a running index. A data object lives for one call and is not
// locked: one thread fills it, runs the command and reads it back.
class LegacyCommandDataInterface {
 public:
  LegacyCommandDataInterface() = default;
  LegacyCommandDataInterface(const LegacyCommandDataInterface&) = delete;
  LegacyCommandDataInterface& operator=(const LegacyCommandDataInterface&) = delete;
  virtual ~LegacyCommandDataInterface();

  // Settings: what each command reads, with its own defaults for keys not set.
  BaseContainer& GetSettings() { return settings_; }
  const BaseContainer& GetSettings() const { return settings_; }

  // Input objects in order. They are not owned and must outlive the run;
  // commands only read them.
  void AddInput(const BaseObject* op) { inputs_.push_back(op); }
  const std::vector<const BaseObject*>& GetInputs() const { return inputs_; }

  // Output objects, owned by the data until taken.
  void AddOutput(std::unique_ptr<BaseObject> op);
  Int32 GetOutputCount() const { return Int32(outputs_.size()); }
  // The output at `index`, or null.
  BaseObject* GetOutput(Int32 index) const;
  // Hands the output at `index` to the caller and leaves null in its place,
  // so that a large result is not copied out; null past the end.
  std::unique_ptr<BaseObject> TakeOutput(Int32 index);
  void FreeOutputs();

  // The state of the last run; OK before any.
  COMMANDRESULT GetResultState() const { return state_; }
  void SetResultState(COMMANDRESULT state) { state_ = state; }

  // The number of records.
  Int GetLegacyDataCount() const { return Int(records_.size()); }
  void FreeLegacyData() { records_.clear(); }

 protected:
  // The record at `index`, or null past the end.
  LegacyDataRecord* GetRecord(Int index) const;
  // Appends a record and gives its index; an allocation failure is an
  // out-of-memory error and leaves the list as it was.
  Result<Int> AppendRecord(std::unique_ptr<LegacyDataRecord> record);

 private:
  BaseContainer settings_;
  std::vector<const BaseObject*> inputs_;
  std::vector<std::unique_ptr<BaseObject>> outputs_;
  std::vector<std::unique_ptr<LegacyDataRecord>> records_;
  COMMANDRESULT state_ = COMMANDRESULT::OK;
};

// A command class. It holds no state of a run: several threads may execute it
// at once on separate data.
class CommandClassInterface {
 public:
  virtual ~CommandClassInterface();
  // Runs on `data`, polling `thread` (null for none). Outputs and records go
  // into `data`; the result is the state the run ended in, or an error.
  virtual Result<COMMANDRESULT> Execute(LegacyCommandDataInterface& data, const ThreadRef& thread) const = 0;
};

using CommandClassRef = std::shared_ptr<const CommandClassInterface>;
using LegacyCommandDataFactory = std::function<Result<std::unique_ptr<LegacyCommandDataInterface>>()>;

// "net.zelmar.command.registry.commandclasses"
Registry<CommandClassRef>& CommandClasses();
// "net.zelmar.command.registry.legacycommanddataclasses"
Registry<LegacyCommandDataFactory>& LegacyCommandDataClasses();

// New data of the class registered under `classId`.
Result<std::unique_ptr<LegacyCommandDataInterface>> CreateCommandData(const String& classId);

// Runs the command registered under `commandId` on `data`. Outputs and records
// of an earlier run are freed first. On success the state is stored in the
// data and returned; on an error the outputs and records are freed, so that
// a failed run leaves nothing half made, and the state is BREAK.
Result<COMMANDRESULT> InvokeCommand(const String& commandId, LegacyCommandDataInterface& data,
                                    const ThreadRef& thread = nullptr);

}  // namespace zta
