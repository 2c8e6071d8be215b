#pragma once

class wxString;

// Deletes the files that CAgentApp::RenameLockedFile moved aside in `folder`, if the system was
// restarted since. What cannot be deleted is told by a warning and is tried again at the next
// start.
void DeleteFilesMovedAside(const wxString& folder);
