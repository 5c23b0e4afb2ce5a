// The communication endpoint of a task.
//
// An endpoint owns a System V message queue, its inbox, and a named pipe in /tmp, on which the replies to its own
// synchronous requests arrive. Its task id is its queue id, so a task id is directly the address to send to. Tables of
// the process map task names to ids and ids to endpoints. Queue and pipe are left in the system if the process ends
// without StopAll(); the next endpoint with the same key then takes the queue over.
//
// Handlers run on the endpoint's thread with cancellation disabled. Where a handler sends and has to wait, for the sync
// lock or for room in a full queue, it can be cancelled all the same, so that StopAll() does not wait for other tasks;
// its frames are unwound then.
//
// Threads: SetKey, construction, go and StopAll belong to one thread, while no other uses an endpoint. Afterwards any
// thread may send from an endpoint; the sync lock makes synchronous exchanges one at a time.
#ifndef TEV_MESSAGING_COMMOBJ_H
#define TEV_MESSAGING_COMMOBJ_H

#include "messaging/MsgQOutStream.h"
#include "messaging/PipeOutStream.h"
#include "messaging/QueueOrigin.h"
#include "platform/CKrThread.h"

#include <atomic>
#include <map>
#include <string>

class FloodGate;
class MsgObj;

class CommObj : public CKrThread {
public:
  /// Creates the queue (with the next key, mode 0660) and the pipe "/tmp/<name>.<task id>" and enters the task in the
  /// tables. `taskName` is cut to 23 characters. What cannot be created is reported in the trace log; without a queue
  /// the endpoint has the task id 0 and is in no table. With `ownQueueOnly`, a queue that another user has a hold on is
  /// not used: it is removed, where that is permitted, or else the endpoint has a queue without a key. Throws
  /// std::bad_alloc, in which case the endpoint is in no table.
  explicit CommObj(const char* taskName, bool ownQueueOnly = false);

  /// Removes queue and pipe. An endpoint in the tables is destroyed by StopAll() only.
  ~CommObj() override;

  CommObj(const CommObj&) = delete;
  CommObj& operator=(const CommObj&) = delete;

  /// Sets the queue key that was handed out last; and hands out the next.
  static void SetKey(int key);
  static int NextMsgQKey();

  int GetMsgQId() const { return _queueId; }
  QueueOrigin GetQueueOrigin() const { return _queueOrigin; }
  int GetPipeFd() const { return _pipeFd; }
  unsigned long GetTaskId() const { return _taskId; }
  unsigned short GetPid() const { return _pid; } ///< low 16 bits of the process id; 0 until run() has started
  const char* GetPipeName() const { return _pipeName; }

  /// Starts the endpoint's thread, which calls run(). `priority` on the scale of krThreadSpawn, `stackSize` in bytes.
  void go(int priority, int stackSize);

  /// Receives messages and runs their handlers. Returns only when the queue is gone. The calling thread can be
  /// cancelled while it waits for a message, and where a handler that sends waits. Messages that cannot be decoded each
  /// write a line to the trace log; of a flood of them, only the first 10,000 and then one a second.
  void run() override;

  /// Deliver `message` into this endpoint's queue (async) or pipe (sync), if `srcTid` is a local endpoint; else nothing
  /// happens. `size` is not used. Return 0.
  virtual int ReceiveAsync(unsigned long srcTid, MsgObj* message, int size);
  virtual int ReceiveSync(unsigned long srcTid, MsgObj* message, int size);

  /// Waits up to 3 seconds for the reply to `request` on this endpoint's pipe and returns it as a new object owned by
  /// the caller; null if none came, or not all of it. The bytes are taken as they come. Call between SyncLock and
  /// SyncUnLock.
  [[nodiscard]] virtual MsgObj* ReadReplyMsg(MsgObj* request);

  /// A synchronous exchange from this endpoint: takes the sync lock, drains the pipe, sends `request`, waits for its
  /// reply and releases the lock. `local` is the endpoint to which the request goes; null: to the queue of a task in
  /// another process. Returns the reply, which belongs to the caller, or null. For MsgObj::Send().
  [[nodiscard]] MsgObj* Exchange(MsgObj& request, CommObj* local);

  /// Held from before a synchronous request is sent until its reply has been read. Waiting for it is a cancellation
  /// point, as far as the caller of Send() or of run() has cancellation enabled.
  void SyncLock();
  void SyncUnLock();

  /// Drains stale bytes, at most 1024, from the pipe. Takes about 1 ms when there are none.
  void SyncClean();

  /// Null for an unknown id; 0 or null, and a line in the trace log, for an unknown name.
  [[nodiscard]] static CommObj* TaskId2CommObj(unsigned long taskId);
  [[nodiscard]] static unsigned long TaskName2TaskId(const char* taskName);
  [[nodiscard]] static CommObj* TaskName2Handle(const char* taskName);

  /// Writes the task table to the trace log.
  static void ShowTable();

  /// Ends the threads of all endpoints of the process, waits until each has left its endpoint, and then destroys the
  /// endpoints. A handler that waits for a reply delays this by up to 3 seconds. Not to be called on an endpoint's
  /// thread.
  static void StopAll();

protected:
  /// run(), as long as `goOn`, which is called before each message is received, returns true.
  void runWhile(bool (*goOn)());

private:
  static constexpr int noDescriptor = -1;

  void enterTables();
  void receiveLoop(int cancelState, bool (*goOn)());
  bool handleReceiveFailure(int reason, FloodGate& unusable);
  bool readReply(MsgObj& reply);
  void openPipe();

  // Never destroyed: a receive thread may outlive the static destructors.
  static std::map<unsigned long, CommObj*>& _sTid2CommObj();
  static std::map<std::string, unsigned long>& _sTaskName2Tid();
  static int _sNextMsgQKey;

  KrMutex* _syncMutex = nullptr;
  int _queueKey;
  QueueOrigin _queueOrigin = QueueOrigin::none;
  int _queueId;
  MsgQOutStream _queueOut{noDescriptor};
  PipeOutStream _pipeOut{noDescriptor};
  unsigned long _taskId = 0;
  std::atomic<uint16_t> _pid{0};
  int _pipeFd = noDescriptor;
  char _pipeName[48] = {}; // the longest name and id fit
  char _taskName[24] = {};
};

#endif
