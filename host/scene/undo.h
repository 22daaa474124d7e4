#pragma once
// Undo and redo of a document. A step groups the AddUndo calls between
// StartUndo and EndUndo; each records a node's state before the change of its
// kind, and undoing the step puts those states back (the last first). What an
// undo took away is kept, so that redo can put the change back in turn.
#include <memory>
#include <vector>

#include "host/core/math.h"
#include "host/core/types.h"

namespace zta {

class BaseDocument;
class BaseList2D;

enum class UNDOTYPE : Int32 {
  CHANGE = 40,         // the node with its tags (its children stay): before any change
  CHANGE_SMALL = 42,   // the node alone, a parameter change
  NEWOBJ = 44,         // after inserting a node
  DELETEOBJ = 45,      // before taking a node (and what is below it) out
  HIERARCHY_PSR = 49,  // before moving a node in the hierarchy; it keeps its place in the world
};

class UndoBuffer {
 public:
  explicit UndoBuffer(BaseDocument* doc);
  ~UndoBuffer();

  bool Start();
  // False outside a step, for a node not in the document, or the document itself.
  bool Add(UNDOTYPE type, BaseList2D* node);
  bool End();
  bool Undo();
  bool Redo();
  Int32 GetUndoCount() const { return Int32(undo_.size()); }
  Int32 GetRedoCount() const { return Int32(redo_.size()); }

 private:
  struct Entry;
  struct Step;
  bool Apply(Entry& e);

  BaseDocument* doc_;
  std::vector<std::unique_ptr<Step>> undo_;
  std::vector<std::unique_ptr<Step>> redo_;
  std::unique_ptr<Step> open_;
  Int32 depth_ = 0;
};

}  // namespace zta
