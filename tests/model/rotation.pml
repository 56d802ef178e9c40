/* Two rotating file destinations of one logger, the threads that log to both of them, their queue, and forks.

   README.md says what is modelled, what is not, and what each search shows. Names are those of the code: what `State`
   of a `FileDestination` holds is global here with an index, what is thread-local there is local to a process here.

   Settings:
     BUFFERED, QUEUED         the way of writing; direct without one. TWO_QUEUES: a queue for each file
     T, L, LIMIT, CAPACITY    threads, lines of each to each file, lines a file takes, lines that may wait
     EXPLICIT, FORK           a thread that calls rotateFile(to:closure:); one that forks
     FAIL_MOVE, FAIL_OPEN, FAIL_IN_PLACE, THROW, REMOVE
                              what may happen in the middle of a rotation, FAILURES times altogether: no move, no new
                              file, no free descriptor, an exception, a filter that removes the destination
     COMPLETION_REPORTS, COMPLETION_ROTATES
                              what the completion of a rotation does: log to both files, rotate the other one
     FLUSH                    threads flush each file after their last line
     LOOK                     threads look whether the file is still at its path
     DUE                      sees that no rotation by the limit is left to the next line, as one may be that an
                              explicit rotation or a look keeps from beginning
   BREAK_... leaves out one rule; each has a row in README.md. */

#ifndef T
#define T 2
#endif
#ifndef L
#define L 2
#endif
#ifndef LIMIT
#define LIMIT 2
#endif
#ifndef CAPACITY
#define CAPACITY 2
#endif
#ifndef FAILURES
#define FAILURES 1
#endif
#if defined(BUFFERED) || defined(QUEUED)
#define WAITS
#endif

#define ME (_pid + 1)

/* A line is 1 + thread * L + number; or it is one that a rotation reports: of this file, or of the other one. One that
   was logged while the file went, or when there was none, may be dropped. */
#define OWN_REPORT 0
#define OTHERS_REPORT 30
#define MAY_DROP 32
#define number(x) ((x) & 31)
#define isReport(x) (number(x) == OWN_REPORT || number(x) == OTHERS_REPORT)
#define ROOM (T * L + 8)

byte handleMutex[2], bufferMutex[2];
bit file[2] = 1, isOpen[2] = 1;
bit isChanging[2], wasDueMeanwhile[2], fresh[2];
byte changer[2], completing[2], counted[2], changes[2], generation[2];
bit owner[2] = 1;
#ifdef WAITS
chan appended[2] = [ROOM] of { byte };         /* the two buffers of `pending` */
chan taken[2] = [ROOM] of { byte };
#endif
bit isMoved[2];                                /* whether the path names another file than the open one, or none */

#ifdef QUEUED
chan waiting[2] = [ROOM] of { byte };          /* the two buffers of a `QueuedLines` */
chan batch[2] = [ROOM] of { byte };
chan queue[2] = [2] of { byte };
bit isQueued[2], isRunning[2];
#ifdef TWO_QUEUES
#define queueOf(f) f
#else
#define queueOf(f) 0
#endif
#endif

/* What is observed, and no part of the code. */
byte next[2 * T];                              /* the lowest number that a thread's next line in a file may have */
byte done[2 * T];                              /* how many of a thread's lines were written, or rightly dropped */
bit isClosing[2];                              /* from when a file goes without another one until there is one */
#ifdef DUE
bit owesRotation[2];                           /* a thread's line has reached the limit */
#endif
byte owed[2];                                  /* reported lines on their way */
byte rotationsLeft[2] = T * L;                 /* each rotation by the limit is due to one line of a thread */
byte finished, failuresLeft = FAILURES;
#ifdef FLUSH
bit retiring[2];
byte unsynced[2 * T];                          /* a thread's last line is 0: durable, 1: in `file`, 2: in `retiring` */
#endif

#define indexOf(f, x) ((f) * T + (number(x) - 1) / L)

inline emit(f, x) {
    if
    :: isReport(x) -> assert(owed[f] > 0); owed[f]--
    :: else ->
        assert((number(x) - 1) % L >= next[indexOf(f, x)]);     /* in order, and not a second time */
        next[indexOf(f, x)] = (number(x) - 1) % L + 1;
        done[indexOf(f, x)]++;
#ifdef FLUSH
        unsynced[indexOf(f, x)] = 1
#endif
    fi
}

inline drop(f, x) {
    assert((x) & MAY_DROP);                                     /* else it is lost */
    if :: isReport(x) -> assert(owed[f] > 0); owed[f]-- :: else -> done[indexOf(f, x)]++ fi
}

#define droppable(f, x) (isClosing[f] -> ((x) | MAY_DROP) : (x))

/* A fresh file's report of itself does not count, the other file's does; more than the limit need not be told apart. */
inline count(f, x) {
    if :: number(x) != OWN_REPORT && counted[f] < LIMIT -> counted[f]++ :: else fi;
#ifdef DUE
    if :: !isReport(x) && counted[f] >= LIMIT -> owesRotation[f] = 1 :: else fi
#endif
}

/* --- FileDestination.cpp --- */

inline lockHandle(f) { atomic { handleMutex[f] == 0 -> handleMutex[f] = ME } }
inline unlockHandle(f) { handleMutex[f] = 0 }

#ifdef BREAK_DROPS_IN_BETWEEN
#define DROPS_IN_BETWEEN true
#else
#define DROPS_IN_BETWEEN false
#endif

/* With handleMutex held. */
inline writePending(f) {
#ifdef WAITS
    round = 0;
    do
    :: !file[f] && isOpen[f] && !DROPS_IN_BETWEEN -> break     /* another file is about to take its place */
    :: file[f] || !isOpen[f] || DROPS_IN_BETWEEN ->
        atomic {
            bufferMutex[f] == 0 || bufferMutex[f] == ME;
            if
            :: len(taken[f]) == 0 ->
                do :: len(appended[f]) > 0 -> appended[f]?y; taken[f]!y :: else -> break od
            :: else
            fi;
            y = 0
        };
        atomic {
            bufferMutex[f] == 0 || bufferMutex[f] == ME;
            do
            :: len(taken[f]) > 0 -> taken[f]?y; if :: file[f] -> emit(f, y) :: else -> drop(f, y) fi
            :: else -> break
            od;
            y = 0;
            round++;
            if :: len(appended[f]) == 0 || round == 2 -> break :: else fi
        }
    od;
    round = 0
#else
    skip
#endif
}

inline writeHeldLines(f) {
#ifdef WAITS
    lockHandle(f); writePending(f); unlockHandle(f)
#else
    skip
#endif
}

inline writeAtOnce(f, x) {
    atomic {
        handleMutex[f] == 0;
        count(f, x);
        if
        :: file[f] -> emit(f, x)
        :: else -> y = droppable(f, x); drop(f, y); y = 0
        fi
    }
}

inline writeLine(f, x) {
#ifdef WAITS
    if
    :: !isOpen[f] -> writeAtOnce(f, x)
    :: else ->
        atomic {
            bufferMutex[f] == 0;
            assert(len(appended[f]) < ROOM);
            appended[f]!droppable(f, x);
            count(f, x);
            isFull = (!isInBatch && len(appended[f]) + len(taken[f]) >= CAPACITY);
#ifdef BREAK_MUTEX_ORDER
            if :: isFull -> bufferMutex[f] = ME :: else fi
#endif
        };
        if :: isFull -> isFull = 0; writeHeldLines(f) :: else fi
#ifdef BREAK_MUTEX_ORDER
        ; atomic { if :: bufferMutex[f] == ME -> bufferMutex[f] = 0 :: else fi }
#endif
    fi
#else
    writeAtOnce(f, x)
#endif
}

/* --- QueuedLines.cpp --- */

#ifdef QUEUED
inline submit(f) {
    atomic { if :: !isQueued[f] -> isQueued[f] = 1; queue[queueOf(f)]!f :: else fi }
}

inline appendToQueue(f, x) {
#ifdef BREAK_ROTATOR_WAITS
    atomic { len(waiting[f]) < CAPACITY; assert(len(waiting[f]) < ROOM); waiting[f]!x };
#else
    atomic {
        isInBatch || rotatingFile != 0 || len(waiting[f]) < CAPACITY;
        assert(len(waiting[f]) < ROOM);
        waiting[f]!x
    };
#endif
    submit(f)
}

#ifdef BREAK_COMPLETION_WAITS
#define mayWait(f) (!isInBatch || queueOf(f) != queueOf(batchOf))
#else
#define mayWait(f) (rotatingFile == 0 && !isInBatch)
#endif
inline finishQueue(f) {
    if
    :: mayWait(f) -> atomic { len(queue[queueOf(f)]) == 0 && !isRunning[queueOf(f)] -> skip }
    :: else
    fi
}
#define goesOnQueue(f) (!isInBatch)
#else
inline finishQueue(f) { skip }
#define goesOnQueue(f) false
#endif

/* A line that a rotation of the other file, or of this one, reports to `f`. */
inline report(f, x) {
    atomic { owed[f]++ };
#ifdef QUEUED
    appendToQueue(f, x)
#else
    writeLine(f, x)
#endif
}

/* --- FileDestinationRotation.cpp --- */

#ifdef DUE
#define RESET_COUNTED(f) counted[f] = 0; owesRotation[f] = 0
#else
#define RESET_COUNTED(f) counted[f] = 0
#endif

/* With handleMutex held. */
inline change(d, f, isRotation) {
    if
#ifndef BREAK_NO_GENERATION
    :: openingsGeneration[d] != generation[f] -> atomic { fresh[f] = 0; hasFresh[d] = 0; isOld[d] = 0 }
#endif
    :: else ->
        isClosing[f] = !hasFresh[d];
#ifndef BREAK_INSTALL_FIRST
        writePending(f);
#endif
        atomic {
            isOld[d] = file[f];
            file[f] = hasFresh[d];
            isOpen[f] = file[f];
            if :: hasFresh[d] -> isMoved[f] = 0 :: else fi;
            hasFresh[d] = 0;
            fresh[f] = 0;
            changes[f]++;
            if :: isRotation -> RESET_COUNTED(f) :: else fi;
#ifdef FLUSH
#ifndef BREAK_NO_RETIRING
            retiring[f] = isOld[d];
#endif
            for (y : 0 .. T - 1) { if :: unsynced[f * T + y] == 1 -> unsynced[f * T + y] = 2 :: else fi };
            y = 0
#endif
        }
#ifdef BREAK_INSTALL_FIRST
        ; writePending(f)
#endif
    fi
}

inline retireOld(d, f) {
#ifdef FLUSH
    if
    :: isOld[d] ->
        atomic {
            for (y : 0 .. T - 1) { if :: unsynced[f * T + y] == 2 -> unsynced[f * T + y] = 0 :: else fi };
            y = 0
        };
        atomic { handleMutex[f] == 0; retiring[f] = 0; isOld[d] = 0 }
    :: else
    fi
#else
    isOld[d] = 0
#endif
}

inline install(d, f, isRotation) { lockHandle(f); change(d, f, isRotation); unlockHandle(f); retireOld(d, f) }

inline beginOpening(d, f) {
    atomic { openingsGeneration[d] = generation[f]; outerRotatingFile[d] = rotatingFile; rotatingFile = 1 + f }
}

inline endOpening(d) {
    atomic { rotatingFile = outerRotatingFile[d]; outerRotatingFile[d] = 0; openingsGeneration[d] = 0 }
}

inline setFresh(d, f) {
    lockHandle(f);
    atomic { assert(!fresh[f]); hasFresh[d] = 1; fresh[f] = 1 };        /* one at a time */
#ifdef WAITS
    if
    :: !file[f] && len(appended[f]) + len(taken[f]) > 0 -> file[f] = 1; writePending(f); file[f] = 0
    :: else
    fi;
#endif
    unlockHandle(f)
}

/* Opens the file at the path, if there is an owner. */
inline openNew(d, f) {
    if
    :: owner[f] ->
        if
        :: setFresh(d, f)
#ifdef FAIL_OPEN
        :: atomic { failuresLeft > 0 -> failuresLeft-- }
#endif
        fi
    :: else
    fi
}

/* No descriptor is free: opens the new file with that of the old one. */
inline openInPlace(d, f) {
    lockHandle(f);
    writePending(f);
    file[f] = 0;
    atomic { hasFresh[d] = 1; fresh[f] = 1 };
    change(d, f, 1);
    unlockHandle(f);
    retireOld(d, f)
}

/* After a failed move: opens the file again. */
inline openFile(d, f, g) {
    if
    :: owner[f] ->
        writeHeldLines(f);
        openNew(d, f);
        if :: goesOnQueue(f) -> install(d, f, 0); report(f, OWN_REPORT) :: else fi;
        report(g, OTHERS_REPORT);
        if :: !goesOnQueue(f) -> install(d, f, 0) :: else fi
    :: else
    fi
}

/* What a filter of the other file may do while a rotation reports to that: taking the owner away closes the file. */
inline removeDestination(f) {
    atomic { generation[f]++; owner[f] = 0; openingsGeneration[2] = generation[f] };
    install(2, f, 0);
    openingsGeneration[2] = 0
}

/* A rotation in the middle of another one. A process for it, as an inline cannot call itself: the thread waits. */
#if defined(BREAK_REPORTS_ROTATE) || defined(COMPLETION_ROTATES)
byte nested[2 * T + 5];
#define rotateNested(f, due) \
    atomic { nested[_pid]++; run nestedRotation(f, rotatingFile, isInBatch, batchOf, due, changesSeen, _pid) }; \
    nested[_pid] == 0
#endif

inline reportTo(f) {
#ifdef BREAK_REPORTS_ROTATE
    changesSeen = changes[f];
    report(f, OTHERS_REPORT);
    if :: counted[f] >= LIMIT -> rotateNested(f, 1) :: else fi
#else
    report(f, OTHERS_REPORT)
#endif
}

inline complete(f, g) {
#ifdef COMPLETION_REPORTS
    report(f, OWN_REPORT);
    report(g, OTHERS_REPORT);
#endif
#ifdef COMPLETION_ROTATES
    if :: outerRotatingFile[0] == 0 -> rotateNested(g, 0) :: else fi;
#endif
    skip
}

inline moveFile(d, f, g) {
    beginOpening(d, f);
    if
    :: atomic { assert(!fresh[f]); isMoved[f] = 1 };
        if
        :: openNew(d, f)
#ifdef FAIL_IN_PLACE
        :: atomic { failuresLeft > 0 && owner[f] -> failuresLeft--; isInPlace[d] = 1 }; openInPlace(d, f)
#endif
        fi;
        if
        :: goesOnQueue(f) ->
            if :: !isInPlace[d] -> install(d, f, 1) :: else fi;
            report(f, OWN_REPORT)
        :: else
        fi;
#ifdef BREAK_REPORTS_WITH_MUTEX
        lockHandle(f);
#endif
        reportTo(g);
#ifdef BREAK_REPORTS_WITH_MUTEX
        unlockHandle(f);
#endif
#ifdef REMOVE
        if
        :: atomic { owner[f] && failuresLeft > 0 -> failuresLeft-- }; removeDestination(f)
        :: true
        fi;
#endif
        if :: !goesOnQueue(f) && !isInPlace[d] -> install(d, f, 1) :: else fi;
        atomic { success[d] = 1; isInPlace[d] = 0 }
#ifdef FAIL_MOVE
    :: atomic { failuresLeft > 0 -> failuresLeft-- };
        openFile(d, f, g);
        report(g, OTHERS_REPORT);
        writeHeldLines(g)                      /* as finishWriting(Level::error) does */
#endif
#ifdef THROW
    :: atomic { failuresLeft > 0 -> failuresLeft--; isMoved[f] = 1; isThrown[d] = 1 };
        if
        :: openNew(d, f); if :: hasFresh[d] -> install(d, f, 1) :: else fi
        :: true
        fi
#endif
    fi;
    endOpening(d)
}

#ifdef BREAK_LATE_ROLE
#define BECOME_CHANGER(f) skip
#else
#define BECOME_CHANGER(f) isChanging[f] = 1; changer[f] = ME
#endif

/* With handleMutex free. */
inline beginRotation(f) {
    mayBegin = !(isChanging[f] || (isDue && (completing[f] > 0 || changesSeen != changes[f])));
#ifdef BREAK_SKIPPED_FOR_GOOD
    wasDueMeanwhile[f] = wasDueMeanwhile[f] || (isDue && (isChanging[f] || completing[f] > 0));
#else
    wasDueMeanwhile[f] = wasDueMeanwhile[f] || (isDue && !mayBegin);
#endif
    if
    :: mayBegin ->
        if :: isDue -> assert(rotationsLeft[f] > 0); rotationsLeft[f]-- :: else fi;
        BECOME_CHANGER(f)
    :: else
    fi;
    isDue = 0
}

#ifdef BREAK_COMPLETION_UNGUARDED
/* What it throws leaves out what comes behind it. */
#define END_COMPLETION(f) \
    if :: failuresLeft > 0 -> failuresLeft-- :: completing[f] > 0 -> completing[f]-- fi
#else
#define END_COMPLETION(f) if :: completing[f] > 0 -> completing[f]-- :: else fi
#endif

/* rotateFile(to:closure:) */
inline rotateFile(d, f, g) {
    finishQueue(f);
    atomic { handleMutex[f] == 0; beginRotation(f) };
    if
    :: mayBegin ->
        mayBegin = 0;
        moveFile(d, f, g);
        atomic {
            handleMutex[f] == 0;
#ifdef BREAK_ROLE_KEPT
            if :: isThrown[d] :: else -> isChanging[f] = 0; changer[f] = 0 fi;
#else
            isChanging[f] = 0;
            changer[f] = 0;
#endif
            completing[f]++;
            changes[f]++;
            outerRotatingFile[d] = rotatingFile;
            rotatingFile = 1 + f
        };
        complete(f, g);
        atomic { rotatingFile = outerRotatingFile[d]; outerRotatingFile[d] = 0 };
        atomic { handleMutex[f] == 0; END_COMPLETION(f) };
        atomic { if :: !success[d] -> RESET_COUNTED(f) :: else fi; success[d] = 0; isThrown[d] = 0 }
    :: else
    fi
}

/* Looks whether the file is still at its path, or opens one if there is none. */
inline look(f, g) {
    atomic {
        handleMutex[f] == 0;
#ifdef BREAK_LOOK
        mayBegin = (owner[f] && (isMoved[f] || !file[f]));
#else
        mayBegin = (owner[f] && !isChanging[f] && (isMoved[f] || !file[f]));
#endif
        if :: mayBegin -> isChanging[f] = 1; changer[f] = ME :: else fi
    };
    if
    :: mayBegin ->
        mayBegin = 0;
        beginOpening(0, f);
        openNew(0, f);
        if
        :: hasFresh[0] ->
            if :: goesOnQueue(f) -> install(0, f, 0); report(f, OWN_REPORT) :: else fi;
            report(g, OTHERS_REPORT);
            if :: !goesOnQueue(f) -> install(0, f, 0) :: else fi
        :: else
        fi;
        endOpening(0);
        atomic { handleMutex[f] == 0; isChanging[f] = 0; changer[f] = 0 }
    :: else
    fi
}

/* --- AutoRotatingFileDestination.cpp --- */

inline write(f, g, x) {
    changesSeen = changes[f];
#ifdef LOOK
    if
    :: (isMoved[f] || !file[f]) && rotatingFile == 0 -> look(f, g)
    :: true
    fi;
#endif
    writeLine(f, x);
    do
    :: rotatingFile == 0 && counted[f] >= LIMIT && !isRefused ->
        isDue = 1;
        rotateFile(0, f, g);
        changesSeen = changes[f];
        atomic {
            handleMutex[f] == 0;
            isRefused = (isChanging[f] || completing[f] > 0 || !wasDueMeanwhile[f]);
            if :: !isChanging[f] && completing[f] == 0 -> wasDueMeanwhile[f] = 0 :: else fi
        }
    :: else -> break
    od;
    isRefused = 0
}

#define LOCALS \
    byte N, X, y, round, rotatingFile, changesSeen, openingsGeneration[3], outerRotatingFile[2], batchOf; \
    bit isInBatch, isFull, isDue, isRefused, mayBegin, hasFresh[3], isOld[3], isInPlace[2], success[2], isThrown[2]

#if defined(BREAK_REPORTS_ROTATE) || defined(COMPLETION_ROTATES)
proctype nestedRotation(byte F; byte itsRotatingFile; bit isItInBatch; byte itsBatchOf; bit isItDue;
                        byte itsChangesSeen; byte caller) {
    LOCALS;
    atomic {
        rotatingFile = itsRotatingFile;
        isInBatch = isItInBatch;
        batchOf = itsBatchOf;
        isDue = isItDue;
        changesSeen = itsChangesSeen
    };
    rotateFile(0, F, (1 - F));
    nested[caller]--
}
#endif

/* --- The threads --- */

proctype logger(byte t) {
    byte F;
    LOCALS;
    do
    :: N < L ->
        X = 1 + t * L + N;
#ifdef QUEUED
        appendToQueue(F, X);
#else
        write(F, (1 - F), X);
#ifndef BUFFERED
        assert(done[F * T + t] > N);           /* without a queue or a buffer it is there when the call returns */
#endif
#endif
        atomic { X = 0; N = N + F; F = 1 - F }
    :: else -> break
    od;
#ifdef FLUSH
    do
    :: F < 2 ->
        writeHeldLines(F);
        atomic {
            handleMutex[F] == 0;
            for (y : 0 .. T - 1) {
                if :: unsynced[F * T + y] == 1 || retiring[F] -> unsynced[F * T + y] = 0 :: else fi
            };
            y = 0;
            assert(unsynced[F * T + t] == 0)
        };
        F++
    :: else -> break
    od;
#endif
    atomic { F = 0; N = 0; finished++ }
}

#ifdef EXPLICIT
proctype rotator() {
    byte F;
    LOCALS;
    if :: F = 0 :: F = 1 fi;
    rotateFile(0, F, (1 - F));
    atomic { F = 0; finished++ }
}
#endif

#ifdef QUEUED
proctype consumer(byte q) {
    byte F;
    LOCALS;
end:
    do
#ifdef BREAK_LATE_SWAP
    :: atomic { queue[q]?F; isRunning[q] = 1; isInBatch = 1; batchOf = F };
        atomic { do :: len(waiting[F]) > 0 -> waiting[F]?X; batch[F]!X :: else -> break od; X = 0 };
        isQueued[F] = 0;
#else
    :: atomic { queue[q]?F; isRunning[q] = 1; isInBatch = 1; batchOf = F; isQueued[F] = 0 };
        atomic { do :: len(waiting[F]) > 0 -> waiting[F]?X; batch[F]!X :: else -> break od; X = 0 };
#endif
        do
        :: len(batch[F]) > 0 ->
            atomic {
                batch[F]?X;
                rotatingFile = (X == OWN_REPORT -> 1 + F : (X == OTHERS_REPORT -> 2 - F : 0))
            };
            write(F, (1 - F), X);
            atomic { X = 0; rotatingFile = 0 }
        :: else -> break
        od;
        if :: len(appended[F]) + len(taken[F]) > 0 -> writeHeldLines(F) :: else fi;
        atomic { F = 0; batchOf = 0; isInBatch = 0; isRunning[q] = 0 }
    od
}
#endif

#ifdef FORK
#ifdef BREAK_FORK_WITHOUT_MUTEX
#define BREAK_ANY_FORK true
#else
#define BREAK_ANY_FORK false
#endif
/* The parent's side, then the child's, which has a copy of all that the parent has at that moment. */
proctype forker() {
    byte F;
    LOCALS;
    byte lockedInChild[2];
    bit isChangingInChild[2], fileInChild[2];
#ifndef BREAK_FORK_WITHOUT_MUTEX
    lockHandle(1); atomic { bufferMutex[1] == 0 -> bufferMutex[1] = ME };
    lockHandle(0); atomic { bufferMutex[0] == 0 -> bufferMutex[0] = ME };
#endif
    atomic {
        for (F : 0 .. 1) {
            lockedInChild[F] = (handleMutex[F] != ME -> handleMutex[F] : 0);
            isChangingInChild[F] = ((isChanging[F] || completing[F] > 0) && changer[F] != ME);
            fileInChild[F] = file[F];
            assert(file[F] || !isOpen[F] || BREAK_ANY_FORK);
#ifdef BREAK_CHILD_KEEPS_TEXT
#ifdef WAITS
            if
            :: file[F] ->
                for (N : 1 .. len(appended[F])) { appended[F]?X; emit(F, X); appended[F]!X }
            :: else
            fi;
            N = 0; X = 0;
#endif
#endif
#ifndef BREAK_CHILD_KEEPS_ROTATION
            isChangingInChild[F] = 0;          /* the changer is a thread of the parent alone */
#endif
        };
        F = 0
    };
#ifndef BREAK_FORK_WITHOUT_MUTEX
    atomic { bufferMutex[0] = 0; handleMutex[0] = 0 };
    atomic { bufferMutex[1] = 0; handleMutex[1] = 0 };
#endif
    /* The child logs to both files, and rotates them. */
    lockedInChild[0] == 0 && lockedInChild[1] == 0;
    assert(!isChangingInChild[0] && !isChangingInChild[1]);
    atomic { fileInChild[0] = 0; fileInChild[1] = 0; finished++ }
}
#endif

#define THREADS (T + EXPLICIT_THREADS + FORKS)
#ifdef EXPLICIT
#define EXPLICIT_THREADS 1
#else
#define EXPLICIT_THREADS 0
#endif
#ifdef FORK
#define FORKS 1
#else
#define FORKS 0
#endif

init {
    byte F;
    LOCALS;
    atomic {
        for (F : 0 .. T - 1) { run logger(F) };
#ifdef EXPLICIT
        run rotator();
#endif
#ifdef QUEUED
        run consumer(0);
#ifdef TWO_QUEUES
        run consumer(1);
#endif
#endif
#ifdef FORK
        run forker();
#endif
        F = 0
    };
    finished == THREADS;
#ifdef QUEUED
    atomic { len(queue[0]) + len(queue[1]) == 0 && !isRunning[0] && !isRunning[1] -> skip };
    assert(len(waiting[0]) + len(waiting[1]) == 0);
#endif
    /* As the exit handler does. */
    writeHeldLines(0);
    writeHeldLines(1);
    d_step {
        for (F : 0 .. 1) {
            assert(!isChanging[F] && completing[F] == 0 && !fresh[F] && owed[F] == 0);
#ifdef DUE
            assert(!owesRotation[F]);          /* nor is a rotation left to the next line */
#endif
            assert(owner[F] || !file[F]);      /* what was removed stays closed */
            for (N : 0 .. T - 1) { assert(done[F * T + N] == L) }      /* none is lost */
        };
        F = 0; N = 0
    }
}
