/* The order's log with one writer and one reader, every interleaving of their accesses.
 *
 * The entry of serial 2 lasts; that of serial 1 leaves, comes back as 3 and leaves again. Meanwhile the log is
 * tidied into the other one, twice, so that the one the reader began in is overwritten. The reader walks as
 * TableOrder::Next does, from serial to serial up to 2, and must show serial 2 exactly once, and serials that rise.
 *
 *   NO_EPOCH   the reader does not look at the epoch again (an error must be found)
 */
#define ROOM 4
#define ATTEMPTS 5

byte epoch = 0;
byte count[2];
byte logSerial[8]; /* two logs of ROOM */
byte logRef[8];
byte serial[3];    /* of slots 1 and 2 */
byte lastSerial = 2;

#define AT(e, i) (((e) % 2) * ROOM + (i))

inline Append(ref, number) {
  serial[ref] = number;
  logSerial[AT(epoch, count[epoch % 2])] = number;
  logRef[AT(epoch, count[epoch % 2])] = ref;
  count[epoch % 2] = count[epoch % 2] + 1;
  lastSerial = number
}

inline Tidy() {
  from = 0;
  to = 0;
  do
  :: from == count[epoch % 2] -> break
  :: else ->
    if
    :: serial[logRef[AT(epoch, from)]] == logSerial[AT(epoch, from)] ->
      logSerial[AT(epoch + 1, to)] = logSerial[AT(epoch, from)];
      logRef[AT(epoch + 1, to)] = logRef[AT(epoch, from)];
      to++
    :: else -> skip
    fi;
    from++
  od;
  count[(epoch + 1) % 2] = to;
  epoch++
}

proctype Writer() {
  byte from, to;
  serial[1] = 0;
  Tidy();
  Append(1, 3);
  Tidy();
  serial[1] = 0;
  Append(1, 4);
}

proctype Reader() {
  byte placeSerial = 0;
  byte at, here, ref, seen, e, n, attempt, shown = 0;
  bool found;
  do
  :: true ->
    attempt = 0;
    do
    :: attempt == ATTEMPTS -> assert(false)
    :: else ->
      e = epoch;
      n = count[e % 2];
      at = 0;
      found = false;
      /* Searching by serial stands for the binary search: the first entry behind the place. */
      do
      :: at >= n -> break
      :: else ->
        here = logSerial[AT(e, at)];
        if
        :: here <= placeSerial -> at++
        :: else ->
          ref = logRef[AT(e, at)];
          seen = serial[ref];
          if
          :: seen == here -> found = true; break
          :: else -> at++
          fi
        fi
      od;
#ifdef NO_EPOCH
      break
#else
      if
      :: epoch == e -> break
      :: else -> attempt++
      fi
#endif
    od;
    if
    :: !found -> break
    :: found && here > 2 -> break
    :: else ->
      assert(here > placeSerial);
      if
      :: here == 2 -> shown++
      :: else -> skip
      fi;
      placeSerial = here
    fi
  od;
  assert(shown == 1)
}

init {
  atomic {
    serial[1] = 1;
    serial[2] = 2;
    logSerial[0] = 1;
    logRef[0] = 1;
    logSerial[1] = 2;
    logRef[1] = 2;
    count[0] = 2;
    run Writer();
    run Reader()
  }
}
