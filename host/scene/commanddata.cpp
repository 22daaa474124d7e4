#include "host/scene/commanddata.h"

#include <new>

#include "host/scene/baseobject.h"

namespace zta {

LegacyCommandDataInterface::~LegacyCommandDataInterface() = default;
CommandClassInterface::~CommandClassInterface() = default;

void LegacyCommandDataInterface::AddOutput(std::unique_ptr<BaseObject> op) {
  if (op) outputs_.push_back(std::move(op));
}

BaseObject* LegacyCommandDataInterface::GetOutput(Int32 index) const {
  return index >= 0 && size_t(index) < outputs_.size() ? outputs_[size_t(index)].get() : nullptr;
}

std::unique_ptr<BaseObject> LegacyCommandDataInterface::TakeOutput(Int32 index) {
  if (index < 0 || size_t(index) >= outputs_.size()) return nullptr;
  return std::move(outputs_[size_t(index)]);
}

void LegacyCommandDataInterface::FreeOutputs() { outputs_.clear(); }

LegacyDataRecord* LegacyCommandDataInterface::GetRecord(Int index) const {
  return index >= 0 && size_t(index) < records_.size() ? records_[size_t(index)].get() : nullptr;
}

Result<Int> LegacyCommandDataInterface::AppendRecord(std::unique_ptr<LegacyDataRecord> record) {
  if (!record) return NullptrError("no record to append");
  try {
    records_.push_back(std::move(record));
  } catch (const std::bad_alloc&) {
    return OutOfMemoryError();
  }
  return Int(records_.size()) - 1;
}

Registry<CommandClassRef>& CommandClasses() {
  static Registry<CommandClassRef> registry("net.zelmar.command.registry.commandclasses");
  return registry;
}

Registry<LegacyCommandDataFactory>& LegacyCommandDataClasses() {
  static Registry<LegacyCommandDataFactory> registry("net.zelmar.command.registry.legacycommanddataclasses");
  return registry;
}

Result<std::unique_ptr<LegacyCommandDataInterface>> CreateCommandData(const String& classId) {
  const LegacyCommandDataFactory* found = LegacyCommandDataClasses().Find(classId);
  if (!found || !*found) return IllegalArgumentError("no command data class " + classId + " is registered");
  const LegacyCommandDataFactory factory = *found;
  return factory();
}

Result<COMMANDRESULT> InvokeCommand(const String& commandId, LegacyCommandDataInterface& data,
                                    const ThreadRef& thread) {
  const CommandClassRef* command = CommandClasses().Find(commandId);
  if (!command || !*command) return IllegalArgumentError("no command " + commandId + " is registered");
  // Held for the run, so that an unregistration meanwhile cannot pull it away.
  const CommandClassRef keep = *command;
  data.FreeOutputs();
  data.FreeLegacyData();
  Result<COMMANDRESULT> result = [&]() -> Result<COMMANDRESULT> {
    try {
      return keep->Execute(data, thread);
    } catch (const std::bad_alloc&) {
      return OutOfMemoryError();
    } catch (const std::exception& e) {
      return UnexpectedError(String("command ") + commandId + " failed: " + e.what());
    }
  }();
  if (!result) {
    data.FreeOutputs();
    data.FreeLegacyData();
    data.SetResultState(COMMANDRESULT::BREAK);
    return result;
  }
  data.SetResultState(*result);
  return result;
}

}  // namespace zta
