#include "apps/start/program_paths.h"

#include "zelka_core/store/dom.h"

wxFileName MakerFolder(const wxFileName& bin) {
    wxFileName maker = bin;
    if (maker.GetDirCount() >= 2) {
        maker.RemoveLastDir();
        if (!maker.GetPath(wxPATH_GET_VOLUME).Contains(kMaker)) {
            maker = bin;
        }
    }
    return maker;
}

void PublishProgramPaths(const wxFileName& program, ZelkaCore::CDom& dom) {
    wxFileName lib = program;
    (void)lib.AppendDir("lib");
    (void)dom.SetWx("app.path.exe", program.GetFullPath());
    (void)dom.SetWx("app.path.bin", program.GetPath(wxPATH_GET_VOLUME));
    (void)dom.SetWx("app.path.lib", lib.GetPath(wxPATH_GET_VOLUME));
    (void)dom.SetWx("app.path.ov", MakerFolder(program).GetPath(wxPATH_GET_VOLUME));
}
