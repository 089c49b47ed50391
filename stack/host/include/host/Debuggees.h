#pragma once

#include <utils/Printer.h>

#include <string>
#include <vector>

/// What is attached to the process's debuggee manager, and whether there is one.
namespace zebcam::host {

/// Whether IDebuggeeManager::get() gives the manager; true at the start.
void setDebuggeeManagerAvailable(bool available);

/// The names of the attached debuggees, in ascending priority number and then in the order of their
/// attachment. Works also while the manager is made unavailable.
std::vector<std::string> debuggeeNames();

/// Prints, in that order, the name of each debuggee as a line and then what it says. A debuggee
/// that is detached meanwhile may still be asked.
void dumpDebuggees(android::Printer& printer, std::vector<std::string> const& options = {});

}  // namespace zebcam::host
