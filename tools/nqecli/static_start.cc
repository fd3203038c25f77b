// The start of a program without shared libraries. The C library asks the system for the program's own path
// there (a link in /proc, a tenth of all that a start takes), so that a shared library it may load later can
// be looked for beside the program. This one loads none by such a path, and has the C library's word for a
// path that is not known.

extern "C" const char *_dl_get_origin() { return reinterpret_cast<const char *>(-1); }
