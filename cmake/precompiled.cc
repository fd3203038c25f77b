// Nothing but the headers that all rooms share; see CMakeLists.txt.
