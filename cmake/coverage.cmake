# Included before anything is built when lines are counted (QDT_COVERAGE). Counters are in all that is compiled from here
# on, also for processes that share them and for threads. Tests have them as well: of a header's inline function, which
# many objects hold, the linker takes the first copy that it meets.
add_compile_options(--coverage -fprofile-update=atomic)
add_link_options(--coverage)

# Of what is compiled for a target, the counters are left out again: -fno-profile-arcs behind --coverage does not do that.
function(qdt_uncounted target)
  get_target_property(options ${target} COMPILE_OPTIONS)
  list(REMOVE_ITEM options --coverage)
  set_target_properties(${target} PROPERTIES COMPILE_OPTIONS "${options}")
endfunction()

add_library(qdt_counters STATIC ${CMAKE_CURRENT_LIST_DIR}/counters.cc)
qdt_uncounted(qdt_counters)
target_link_options(qdt_counters INTERFACE -Wl,--wrap=_exit,--wrap=_Exit,--wrap=quick_exit,--wrap=prctl)
