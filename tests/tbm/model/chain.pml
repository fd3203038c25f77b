/* A bucket's chain with one writer and one reader, every interleaving of their accesses.
 *
 * At first the chain is 1 (changing), 2 (lasting). The writer takes the changing entry out and puts it in again,
 * which uses its slot again and makes it the chain's last; twice. The reader walks the chain from its front, entry by entry, as ChainOrder::Next does, and must show
 * entry 2 exactly once, and serials that rise.
 *
 * Defined by who calls the checker:
 *   EARLY      the removal is counted before the serial is cleared     (an error must be found, with NO_LOOK)
 *   NO_LOOK    the reader does not look at the serial again
 *   NO_COUNT   the reader does not look at the count of removals again (an error must be found)
 */
#define SLOTS 3
#define ATTEMPTS 5

byte head = 1;
byte removals = 0;
byte next_[SLOTS];
byte serial[SLOTS];
byte last = 2;
byte lastSerial = 2;

byte shown = 0;      /* how often entry of serial 2 was shown */
bool walked = false;
bool gaveUp = false;

inline Remove(ref, prev) {
  /* unlink */
  if
  :: prev == 0 -> head = next_[ref]
  :: else -> next_[prev] = next_[ref]
  fi;
#ifdef EARLY
  removals++;
  serial[ref] = 0;
#else
  serial[ref] = 0;
  removals++;
#endif
}

inline Append(ref) {
  next_[ref] = 0;
  lastSerial++;
  serial[ref] = lastSerial;
  if
  :: head == 0 -> head = ref
  :: else -> next_[last] = ref
  fi;
  last = ref
}

proctype Writer() {
  /* 1 leaves and comes back behind 2, twice; what stands before it is 2 the second time. */
  Remove(1, 0);
  Append(1);
  last = 2;
  Remove(1, 2);
  Append(1);
}

proctype Reader() {
  byte placeRef = 0, placeSerial = 0;
  byte ref, seen, before, attempt, found;
  byte end = 2; /* serials up to this were there when the walk began */
  do
  :: true ->
    attempt = 0;
    found = 0;
    do
    :: attempt == ATTEMPTS -> gaveUp = true; goto over
    :: else ->
      before = removals;
      /* the first slot behind the place */
      ref = 255;
      if
      :: placeSerial != 0 ->
        seen = serial[placeRef];
        if
        :: seen == placeSerial ->
          ref = next_[placeRef];
#ifndef NO_LOOK
          seen = serial[placeRef];
          if
          :: seen != placeSerial -> ref = 255
          :: else -> skip
          fi
#endif
        :: else -> skip
        fi
      :: else -> skip
      fi;
      if
      :: ref == 255 -> ref = head
      :: else -> skip
      fi;
      /* along the chain */
      do
      :: ref == 0 -> found = 0; break
      :: else ->
        seen = serial[ref];
        if
        :: seen > placeSerial -> found = ref; break
        :: else -> ref = next_[ref]
        fi
      od;
#ifdef NO_COUNT
      break
#else
      if
      :: removals == before -> break
      :: else -> attempt++
      fi
#endif
    od;
    if
    :: found == 0 -> break
    :: seen > end -> break
    :: else ->
      assert(seen > placeSerial);
      if
      :: seen == 2 -> shown++
      :: else -> skip
      fi;
      placeRef = found;
      placeSerial = seen
    fi
  od;
  walked = true;
  assert(shown == 1);
over:
  assert(!gaveUp)
}

init {
  atomic {
    next_[1] = 2;
    serial[1] = 1;
    serial[2] = 2;
    run Writer();
    run Reader()
  }
}
