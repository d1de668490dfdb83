// Where the update package's information file lies: UPDPKG_INFO_PATH / UPDPKG_INFO_NAME.
#pragma once

extern char g_szUpdPkgPath[256];
extern char g_szUpdPkgName[256];
extern char g_szPkfInf[256];

void get_update_info_path();
