#pragma once
// One wait object for several signal services: its descriptor (Linux) or
// event handle (Windows) is readable while any member holds a signal or has
// failed. An application that watches many ports then waits on one object
// instead of one per service, and the tick that posts to all of them wakes
// it with one system call instead of one per service.
//
//     CKVX_HdwSignalGroup group;
//     arincSignals->JoinGroup(&group);
//     canSignals->JoinGroup(&group);
//     pollfd p{group.GetFileDescriptor(), POLLIN, 0};
//     while (poll(&p, 1, 1000) >= 0) {
//         arincSignals->ReadSignals(...);  // read every member: the object
//         canSignals->ReadSignals(...);    // stays readable until all are empty
//     }
//
// While a service is a member its own descriptor / handle stays unset. A
// service is in at most one group. Members leave when they are destroyed or
// call LeaveGroup; a group that is destroyed first makes its members leave.
//
// Lock rule: a member's queue mutex is taken before the group's mutex.

#include <HdwLib/HdwLibExport.h>

#include <mutex>
#include <vector>

class CKVX_HdwSignalService;

class HDWLIB_EXPORT CKVX_HdwSignalGroup {
public:
    CKVX_HdwSignalGroup();
    ~CKVX_HdwSignalGroup();
    CKVX_HdwSignalGroup(const CKVX_HdwSignalGroup&) = delete;
    CKVX_HdwSignalGroup& operator=(const CKVX_HdwSignalGroup&) = delete;

    // Linux: polls readable while a member is ready; -1 where there is none
    // (the system refused the object). Do not read or close it.
    int GetFileDescriptor() const;
    // Windows: a manual-reset event handle under the same rule; null where
    // there is none. Do not close it.
    void* GetWaitHandle() const;
    // How many members are ready now.
    unsigned GetReadyMembers() const;
    unsigned GetMemberCount() const;

private:
    friend class CKVX_HdwSignalService;
    // Called by a member with its queue mutex held.
    void Add(CKVX_HdwSignalService* member, bool ready);
    void Remove(CKVX_HdwSignalService* member, bool ready);
    void MemberReadyChanged(bool ready);

    mutable std::mutex m_Mutex;
    std::vector<CKVX_HdwSignalService*> m_Members;
    unsigned m_ReadyMembers = 0;
    void* m_Readiness = nullptr;
};
