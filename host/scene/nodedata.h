#pragma once
// The base classes of plug-in nodes. A node of a registered type owns one
// instance of its class; the host calls the virtual operations below, whose
// order is the slot order of the host's table. Every default is the base
// class's answer.
#include <memory>

#include "host/core/thread.h"
#include "host/scene/description.h"

namespace zta {

class GeListNode;
class GeListHead;
class BaseList2D;
class BaseObject;
class BaseTag;
class BaseDocument;
class AliasTrans;
class HyperFile;
class BaseDraw;
class BaseDrawHelp;
class PriorityList;

// One branch of a node: a list head that the node owns besides its children.
struct BranchInfo {
  GeListHead* head = nullptr;
  String name;
  Int32 id = 0;
  Int32 flags = 0;
};

enum class DRAWPASS : Int32 { OBJECT = 0, HANDLES = 1, HIGHLIGHTS = 2 };
enum class DRAWRESULT : Int32 { ERROR_ = 0, OK = 1, SKIP = 2 };
enum class EXECUTIONRESULT : Int32 { OK = 0, USERBREAK = 1, OUTOFMEMORY = 2 };

// The host's argument to a generator build: the document, the thread to
// poll, what the build is for, and the generator being built, whose
// dependence list GetHierarchyClone fills.
class HierarchyHelp {
 public:
  HierarchyHelp(BaseDocument* doc, ThreadRef thread, Int32 buildFlags, BaseObject* generator = nullptr)
      : doc_(doc), thread_(std::move(thread)), buildFlags_(buildFlags), generator_(generator) {}
  BaseDocument* GetDocument() const { return doc_; }
  const ThreadRef& GetThread() const { return thread_; }
  Int32 GetBuildFlags() const { return buildFlags_; }
  BaseObject* GetGenerator() const { return generator_; }

 private:
  BaseDocument* doc_;
  ThreadRef thread_;
  Int32 buildFlags_;
  BaseObject* generator_;
};

class NodeData {
 public:
  virtual ~NodeData() = default;                                             // 0
  virtual bool InitNode(GeListNode* node) { return true; }                   // 1
  virtual void FreeNode(GeListNode* node) {}                                 // 2
  virtual bool ReadNode(GeListNode* node, HyperFile* hf, Int32 level) { return true; }  // 3
  virtual bool WriteNode(const GeListNode* node, HyperFile* hf) const { return true; }  // 4
  // 5: copies this (the source's data) into `dest`, a fresh instance of the same class.
  virtual bool CopyNode(NodeData* dest, const GeListNode* snode, GeListNode* dnode, Int32 flags,
                        AliasTrans* trans) const {
    return true;
  }
  virtual bool HandleMessage(GeListNode* node, Int32 type, void* data) { return true; }  // 6
  // Slots 7 and 8 are the host's own.
  virtual Int32 ListBranches(GeListNode* node, BranchInfo* info, Int32 max, Int32 flags) const { return 0; }  // 9
  // Slot 10 is the host's own.
  virtual bool DescribeParameters(GeListNode* node, Description* description, Int32& flags) { return false; }  // 11
  virtual bool GetParameterValue(GeListNode* node, const DescID& id, GeData& t_data, Int32& flags) {  // 12
    return true;
  }
  virtual bool SetParameterValue(GeListNode* node, const DescID& id, const GeData& t_data, Int32& flags) {  // 13
    return true;
  }
  virtual bool IsParameterEnabled(GeListNode* node, const DescID& id, const GeData& t_data, Int32 flags,  // 14
                                  const BaseContainer* itemdesc) {
    return false;
  }
  virtual bool TranslateParameter(GeListNode* node, const DescID& id, DescID& res_id,  // 15
                                  BaseList2D*& res_at) {
    return false;
  }
  // Slot 16 is the host's own.
};

class ObjectData : public NodeData {
 public:
  virtual void GetObjectBounds(BaseObject* op, Vector* mp, Vector* rad) {}  // 17
  virtual DRAWRESULT DrawObject(BaseObject* op, DRAWPASS pass, BaseDraw* bd, BaseDrawHelp* bh) {  // 18
    return pass == DRAWPASS::HANDLES ? DRAWRESULT::OK : DRAWRESULT::SKIP;
  }
  // 19 to 21: handle operations, not overridden by any class of the module.
  virtual bool AddToExecution(BaseObject* op, PriorityList* list) { return false; }  // 22
  virtual EXECUTIONRESULT ExecuteObject(BaseObject* op, BaseDocument* doc, ZTAThread* bt, Int32 priority,  // 23
                                        Int32 flags) {
    return EXECUTIONRESULT::OK;
  }
  // 25: the cache object, or null on failure (the host then keeps the last
  // cache and asks again at the next pass). Returning op->GetCache() keeps
  // the cache as it is; any other object passes to the host, which makes it
  // the new cache and frees the old one.
  virtual BaseObject* BuildVirtualObjects(BaseObject* op, const HierarchyHelp* hh) { return nullptr; }
  virtual bool ModifyObject(BaseObject* mod, BaseDocument* doc, BaseObject* op, const Matrix& op_mg,  // 26
                            const Matrix& mod_mg, Float lod, Int32 flags, ZTAThread* thread) {
    return true;
  }
  virtual void CheckDirtyState(BaseObject* op, BaseDocument* doc) {}  // 27
};

class TagData : public NodeData {
 public:
  virtual DRAWRESULT DrawTag(BaseTag* tag, BaseObject* op, BaseDraw* bd, BaseDrawHelp* bh) {  // 17
    return DRAWRESULT::SKIP;
  }
  virtual EXECUTIONRESULT ExecuteTag(BaseTag* tag, BaseDocument* doc, BaseObject* op, ZTAThread* bt,  // 18
                                     Int32 priority, Int32 flags) {
    return EXECUTIONRESULT::OK;
  }
  virtual bool AddTagToExecution(BaseTag* tag, PriorityList* list) { return false; }  // 19
};

// The base of a scene hook: one node per document (FindSceneHook), which
// hears the document's events and is written with it.
class SceneHookData : public NodeData {};

}  // namespace zta
