/* A record of two words with one writer and one reader, every interleaving of their accesses.
 *
 * The writer overwrites the record of the entry of serial 1, and that of another slot, which uses the table's spare as
 * well; then it removes the entry and uses its slot for that of serial 2. The reader copies the record of serial 1 as
 * TableView::Copy does: it has both words of one state of that entry, or learns that it has gone. It never waits.
 *
 *   NO_SPARE    the reader takes the record whatever the version is, if it is the same afterwards (an error must be found)
 *   NO_VERSION  the reader does not look at the version again  (an error must be found)
 *   NO_SERIAL   the reader does not look at the serial         (an error must be found)
 */
#define ATTEMPTS 8

byte serial = 1;
byte version = 0;
byte record[2];
byte spare[2];
byte otherVersion = 0;
byte other[2];

inline Update(value) {
  spare[0] = record[0];
  spare[1] = record[1];
  version++;
  record[0] = value;
  record[1] = value;
  version++
}

proctype Writer() {
  Update(2);
  /* another slot's record, through the same spare */
  spare[0] = other[0];
  spare[1] = other[1];
  otherVersion++;
  other[0] = 21;
  other[1] = 21;
  otherVersion++;
  Update(3);
  /* the entry leaves, and another one gets its slot */
  serial = 0;
  record[0] = 30;
  record[1] = 30;
  serial = 2
}

proctype Reader() {
  byte v, a, b, attempt = 0;
  do
  :: attempt == ATTEMPTS -> assert(false)
  :: else ->
    v = version;
#ifdef NO_SPARE
    a = record[0];
    b = record[1];
#else
    if
    :: v % 2 == 0 -> a = record[0]; b = record[1]
    :: else -> a = spare[0]; b = spare[1]
    fi;
#endif
#ifndef NO_SERIAL
    if
    :: serial != 1 -> goto over
    :: else -> skip
    fi;
#endif
#ifdef NO_VERSION
    break
#else
    if
    :: version == v -> break
    :: else -> attempt++
    fi
#endif
  od;
  assert(a == b);
  assert(a >= 1 && a <= 3);
over:
  skip
}

init {
  atomic {
    record[0] = 1;
    record[1] = 1;
    other[0] = 20;
    other[1] = 20;
    run Writer();
    run Reader()
  }
}
