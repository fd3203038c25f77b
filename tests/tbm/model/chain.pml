/* A bucket's chain with one writer and one reader, every interleaving of their accesses.
 *
 * At first the chain is 1, 2 (both changing), 3 (lasting). The writer takes changing entries out and puts them in
 * again, which uses their slots again and makes them the chain's last. The reader walks the chain from its front,
 * entry by entry, as ChainOrder::Next does, and must show entry 3 exactly once, and serials that rise.
 *
 * Defined by who calls the checker:
 *   EARLY      the removal is counted before the serial is cleared     (an error must be found, with NO_LOOK)
 *   NO_LOOK    the reader does not look at the serial again
 *   WILD       the reader goes on behind what stood before its place without a look at the serial (an error must be
 *              found)
 *   NO_COUNT   the reader does not look at the count of removals again (an error must be found)
 */
#define SLOTS 4
#define ATTEMPTS 5

byte head = 1;
byte removals = 0;
byte next_[SLOTS];
byte serial[SLOTS];
byte last = 3;
byte lastSerial = 3;

byte shown = 0;      /* how often the entry of serial 3 was shown */
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
  /* 2 leaves and comes back behind 3, then 1 behind that, then 2 again, and once more as the last. */
  Remove(2, 1);
  Append(2);
  Remove(1, 0);
  Append(1);
  Remove(2, 3);
  Append(2);
  Remove(2, 1);
  last = 1;
  Append(2);
}

/* The reader's: behind the entry that it stands on, in `ref`; 255 when that has gone. */
inline Follow() {
  if
  :: stoodSerial != 0 ->
    seen = serial[stoodRef];
    if
    :: seen == stoodSerial ->
      ref = next_[stoodRef];
#ifndef NO_LOOK
      seen = serial[stoodRef];
      if
      :: seen != stoodSerial -> ref = 255
      :: else -> skip
      fi
#endif
    :: else -> skip
    fi
  :: else -> skip
  fi
}

proctype Reader() {
  byte placeRef = 0, placeSerial = 0;
  byte beforeRef = 0, beforeSerial = 0; /* what stood before the place */
  byte stoodRef, stoodSerial;           /* what stands before `ref` */
  byte ref, seen, before, attempt, found;
  byte end = 3; /* serials up to this were there when the walk began */
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
      stoodRef = placeRef;
      stoodSerial = placeSerial;
      Follow();
      if
      :: ref == 255 ->
        stoodRef = beforeRef;
        stoodSerial = beforeSerial;
#ifdef WILD
        if
        :: stoodSerial != 0 -> ref = next_[stoodRef]
        :: else -> skip
        fi
#else
        Follow()
#endif
      :: else -> skip
      fi;
      if
      :: ref == 255 ->
        stoodSerial = 0;
        ref = head
      :: else -> skip
      fi;
      /* along the chain */
      do
      :: ref == 0 -> found = 0; break
      :: else ->
        seen = serial[ref];
        if
        :: seen > placeSerial -> found = ref; break
        :: else ->
          if
          :: seen != 0 ->
            stoodRef = ref;
            stoodSerial = seen
          :: else -> skip
          fi;
          ref = next_[ref]
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
      :: seen == 3 -> shown++
      :: else -> skip
      fi;
      placeRef = found;
      placeSerial = seen;
      beforeRef = stoodRef;
      beforeSerial = stoodSerial
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
    next_[2] = 3;
    serial[1] = 1;
    serial[2] = 2;
    serial[3] = 3;
    run Writer();
    run Reader()
  }
}
