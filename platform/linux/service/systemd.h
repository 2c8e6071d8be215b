#pragma once

#include <string>

// What the service layer asks of systemd. Every question is answered within seconds, also by a
// system that goes down.

// The unit that this process belongs to, with its suffix `.service`; empty if there is none.
std::string OwnUnit();

// Whether the whole system is going down, as far as one can tell.
bool IsSystemGoingDown();

// Whether systemd is stopping the unit, whoever asked for it.
bool IsUnitDeactivating(const std::string& unit);

// Makes systemd refuse `systemctl stop` and `restart` for a unit: a run-time drop-in with
// RefuseManualStop=yes and a reload. Poweroff and reboot still stop the unit. A drop-in outlives a
// crash of the process, so it is taken back at the next start. Only root may do this, and only for
// a process that belongs to a unit; for others nothing happens. Failures are logged as warnings.
// One thread at a time.
class UnitStopRefusal {
  public:
    // The object does not change anything by itself.
    explicit UnitStopRefusal(std::string unit);

    // `refuse` false also removes what another process of this unit has left behind.
    void Set(bool refuse) const;

  private:
    [[nodiscard]] bool Install() const;
    [[nodiscard]] bool Remove() const;

    const std::string m_unit;    // empty: nothing to do
    const std::string m_folder;  // of the drop-in
    const std::string m_file;
};
