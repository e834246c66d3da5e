/*
 * Model of the hand-over of a log line, for the model checker Spin. Check.sh runs it.
 *
 * Spin tries every order in which the steps of the threads can follow each other, and reports an
 * order that violates an assert(). README.md says how to read and change this file.
 *
 * The names are those of Tolvex/Log/LoggerCore and of LineLock, LineQueue and WriterLife in
 * Tolvex/Log/Private.
 */

/* ---- Sizes and parts of a variant; Check.sh sets them with -D. ---- */

#ifndef COMPOSERS
#define COMPOSERS 2 /* threads that log */
#endif
#ifndef LINES
#define LINES 1 /* lines that each of them begins */
#endif

/* Identifiers of threads. 0 is no thread. */
#define closer 5
#define enabler 6
#define ignition 7
#define forker 8
#define mainThread 9
#define firstWriter 9 /* the writer with number 1 is thread 10 */
#define threads 14

#ifdef FORK
/* After the fork only the thread that forked, and threads that the child starts, take steps. */
#define EXISTS provided(!inChild || _pid == forkingProcess || _pid >= firstProcessInChild)
#else
#define EXISTS
#endif

/* ---- LineLock. The parts of `word` change together: each d_step is one atomic operation. ---- */

mtype = { Free, Open, Inserting, Dropped, Complete, Taken, Writing, Abandoned };

mtype phase = Free;
byte owner = 0;
bool refusing = true;
bool waiting = false;
bool reserved = false;

byte mutex = 0; /* the thread that holds LineLock::mutex */
bool wakePending = false;
chan queue = [COMPOSERS + 3] of { byte }; /* LineQueue: the threads that sleep in Take() */
byte woken[threads];                      /* LineQueue::Place::woken */

/* ---- WriterLife ---- */

bool enabledFlag = false;
bool stoppedFlag = true;
byte current = 0;
byte toldToEnd = 0;
byte currentThread = 0;
byte lifeMutex = 0; /* the thread that holds WriterLife::mutex */
bool loggerGone = false;

/* ---- LoggerCore ---- */

byte lineReady = 0; /* tokens of the semaphore */
byte control = 0;   /* the thread that is in Enable() or Close() */

/* ---- What only the properties need ---- */

byte started = 0;            /* threads that have to come to an end */
byte finished = 0;           /* those that have */
byte bufferUser = 0;         /* the thread that uses the buffer */
bool endedLine = false;      /* a line was ended and no writer has taken it */
bool noticeTaken = false;    /* the last notice has the line, or had it; until lines are admitted */
bool notice = false;         /* the line is the last notice */
byte running = 0;            /* number of the current writer while its thread runs */
bool inChild = false;
byte forkingProcess = 0;
byte firstProcessInChild = 255;

/*
 * ---- Mutexes ----
 *
 * Where at most one step under the mutex is visible to a thread without the mutex, the lock, the
 * steps and the unlock stand in one atomic block: it has the same orders, and fewer states.
 */

inline Lock(aMutex)
{
    atomic { aMutex == 0 -> aMutex = me }
}

inline Unlock(aMutex)
{
    aMutex = 0
}

/* ---- LineLock: taking the line ---- */

inline UpdateWaiting()
{
    d_step { waiting = (len(queue) > 0 && !wakePending) }
}

inline WakeFirst()
{
    atomic {
        Lock(mutex);
        if
        :: len(queue) > 0 -> queue?next; wakePending = true; UpdateWaiting()
        :: else
        fi;
        Unlock(mutex)
    }
    if
    :: next != 0 -> atomic { woken[next]++; next = 0 }
    :: else
    fi
}

inline TryTake(isPolicy, isFirst)
{
    d_step {
        taken = (phase == Free && (isPolicy || !refusing) && (isFirst || !reserved));
        if
        :: taken -> owner = me; phase = Inserting; reserved = false
        :: else
        fi
    }
}

/* The second try of a thread that is first in the queue; a thread that is not first does not try. */
inline TryTakeAsFirst(isPolicy)
{
    if
    :: queue?[eval(me)] -> TryTake(isPolicy, true)
    :: else -> taken = false
    fi
}

/* mayGiveUp: the deadline may pass at any moment. The spin before the sleep is left out. */
inline Take(isPolicy, mayGiveUp)
{
    TryTake(isPolicy, false);
    if
    :: taken
    :: else ->
       atomic {
           Lock(mutex);
           queue!me; /* Append() */
#ifndef FAULT_1
           UpdateWaiting()
#endif
       }
       do
       :: true ->
#ifndef FAULT_8
          refused = (refusing && !isPolicy); /* refused */
#endif
          TryTakeAsFirst(isPolicy);
#ifdef FAULT_1
          UpdateWaiting();
#endif
#ifdef FAULT_8
          refused = (refusing && !isPolicy);
#endif
          if
          :: taken || refused -> refused = false; break
          :: else -> Unlock(mutex)
          fi;
          if /* Sleep() */
          :: atomic { woken[me] > 0 -> woken[me]-- }
             Lock(mutex)
          :: mayGiveUp ->
             Lock(mutex);
             if
             :: queue??[eval(me)] -> break
             :: else -> atomic { woken[me] > 0 -> woken[me]-- }
             fi
          fi;
          atomic {
              reserved = true;
              Unlock(mutex)
          }
          atomic {
              Lock(mutex);
              wakePending = false;
              next = len(queue); /* Prepend() */
              queue!me;
              do
              :: next > 0 -> queue?other; queue!other; next--
              :: else -> break
              od;
              other = 0;
#ifndef FAULT_1
              UpdateWaiting()
#endif
          }
       od;
       if
       :: !taken && queue?[eval(me)] -> reserved = false
       :: else
       fi;
       atomic {
           if
           :: queue??[eval(me)] -> queue??eval(me) /* Remove() */
           :: else
           fi;
           UpdateWaiting();
           Unlock(mutex)
       }
#ifndef FAULT_4
       if
       :: !taken && phase == Free -> WakeFirst()
       :: else
       fi
#endif
    fi
}

/* ---- LineLock: the other changes ---- */

inline Advance(from, to)
{
    d_step {
        moved = (phase == from && owner == (from == Complete -> 0 : me));
        if
        :: moved ->
           phase = to;
           owner = (to == Complete -> 0 : me)
        :: else
        fi
    }
}

/* `before` receives the phase; `_` is a variable that keeps nothing. */
inline Release(before)
{
    d_step {
        wake = false;
        before = Free;
        if
        :: owner == me -> before = phase; wake = waiting; phase = Free; owner = 0; notice = false
        :: else
        fi
    }
    if
    :: wake -> wake = false; WakeFirst()
    :: else
    fi
}

inline RefuseInLock()
{
    refusing = true;
    do
    :: true ->
       atomic {
           Lock(mutex);
           if
           :: len(queue) > 0 -> queue?next
           :: else
           fi;
           UpdateWaiting();
           Unlock(mutex)
       }
       if
       :: next == 0 -> break
       :: else -> atomic { woken[next]++; next = 0 }
       fi
    od
}

inline Drop()
{
    d_step {
        wake = false;
        if
        :: phase == Open -> phase = Free; owner = 0; notice = false; wake = waiting
        :: phase == Inserting -> phase = Dropped
        :: else
        fi
    }
    if
    :: wake -> wake = false; WakeFirst()
    :: else
    fi
}

/* ---- WriterLife ---- */

inline AwaitOldWriter()
{
    do /* The phase and the owner are read one after the other. */
    :: stoppedFlag -> break
    :: phase == Writing ->
       if
       :: owner == currentThread -> break
       :: else -> (stoppedFlag || phase != Writing || owner == currentThread)
       fi
    od
}

inline Announce()
{
    Lock(lifeMutex);
    stoppedFlag = false;
    atomic { currentThread = 0; current++; number = current; assert(firstWriter + number < threads) }
    Unlock(lifeMutex)
}

inline Admit()
{
    Lock(lifeMutex);
    if
    :: !stoppedFlag ->
       atomic { refusing = false; noticeTaken = false }
       enabledFlag = true
    :: else
    fi;
    Unlock(lifeMutex)
}

inline Refuse()
{
    enabledFlag = false;
    RefuseInLock()
}

inline TellToEnd()
{
    toldToEnd = current
}

/* ---- LoggerCore ---- */

inline Notify()
{
    lineReady++
}

inline UseBuffer()
{
    atomic { assert(bufferUser == 0); bufferUser = me }
}

inline LeaveBuffer()
{
    atomic { assert(bufferUser == me); bufferUser = 0 }
}

/* The end of a LineStep that was not ended otherwise. */
inline LeaveStep()
{
    LeaveBuffer();
    Release(_)
}

/* Leaves `moved` at whether the line was handed over. */
inline HandOver()
{
    atomic {
        Advance(Inserting, Complete);
        if
        :: moved ->
           assert(!endedLine);
           endedLine = true;
           LeaveBuffer()
        :: else
        fi
    }
    if
    :: moved -> Notify()
    :: else
    fi
}

/* Waits at most 2.1 seconds: whether the writer stops within that time is left open. */
inline AwaitStopped()
{
    if
    :: stoppedFlag
    :: true
    fi
}

/* Called by Close() and Enable(). */
inline StopWriter()
{
    Refuse();
#ifdef FAULT_2
    TellToEnd();
    Drop();
#else
    Drop();
    TellToEnd();
#endif
    Notify()
}

/* PATIENT: the deadline is far away. No thread may sleep until then while the line is free. */
inline CallPolicy()
{
#ifdef PATIENT
    Take(true, false);
#else
    Take(true, true);
#endif
    if
    :: taken -> UseBuffer(); LeaveStep()
    :: else
    fi
}

inline Enable()
{
    Lock(control);
    if
    :: enabledFlag
    :: else ->
#ifndef FAULT_6
       StopWriter();
#endif
       AwaitOldWriter();
       lineReady = 0;
       Announce();
       if
       :: atomic { true -> running = number; run Writer(firstWriter + number, number); number = 0 }
          if
          :: true -> taken = true /* without an output */
          :: CallPolicy()
          fi;
          if
          :: taken -> Admit()
          :: else -> StopWriter(); AwaitStopped()
          fi
#ifdef NO_THREAD
       :: number = 0;
          Lock(lifeMutex); Refuse(); Drop(); stoppedFlag = true; Unlock(lifeMutex) /* Gone() */
#endif
       fi
    fi;
    Unlock(control)
}

inline Close()
{
    Lock(control);
    StopWriter();
    AwaitStopped();
    CallPolicy();
    Unlock(control)
}

inline Detach()
{
    mtype released = Free;
    do
    :: true ->
       Lock(lifeMutex); /* TryDetach() */
       released = phase;
       moved = (released == Writing && owner == currentThread); /* hanging */
       if
       :: released == Taken || (!stoppedFlag && !moved) -> moved = false
       :: else ->
          d_step {
              moved = (released != Writing || phase == Writing);
              if
              :: released == Writing && moved -> phase = Abandoned
              :: else
              fi
          }
          loggerGone = moved
       fi;
       Unlock(lifeMutex);
       if
       :: moved -> break
       :: else ->
          (phase != Taken && (stoppedFlag || (phase == Writing && owner == currentThread)))
       fi
    od
}

inline EndOfThread()
{
    Release(_); /* DropLinesOfThread() */
    finished++
}

#define LOCALS                                                                                     \
    bool taken = false;                                                                            \
    bool moved = false;                                                                            \
    bool wake = false;                                                                             \
    byte next = 0;                                                                                 \
    byte other = 0;                                                                                \
    bool refused = false;                                                                          \
    byte number = 0

/* ---- The threads ---- */

#define TOLD_TO_END (toldToEnd >= mine)

/* Writer::Run() and WriterLife::Next() */
proctype Writer(byte me; byte mine) EXISTS
{
    bool moved = false;
    bool wake = false;
    bool ending = false;
    mtype released = Free;
    byte next = 0;

    Lock(lifeMutex); /* Begin() */
    if
    :: mine == current -> currentThread = me
    :: else
    fi;
    Unlock(lifeMutex);

waitForToken:
    assert(!loggerGone);
    if
    :: atomic { lineReady > 0 -> lineReady-- }
#ifdef CANCEL
    :: goto gone
#endif
    fi;
nextStep:
    if
    :: mine != current -> goto gone
    :: else
    fi;
#ifndef FAULT_3
    ending = TOLD_TO_END;
#endif
    atomic {
        Advance(Complete, Taken);
        if
        :: moved -> assert(endedLine); endedLine = false; UseBuffer()
        :: else
        fi
    }
    if
    :: moved ->
       atomic { LeaveBuffer(); Advance(Taken, Writing) }
       assert(notice || !noticeTaken); /* no line follows the last notice */
       if
       :: true
#ifdef CANCEL
       :: goto gone /* cancelled in Write() of the policy */
#endif
#ifdef DETACH
       :: true -> false /* hangs for ever in Write() of the policy */
#endif
       fi;
       Release(released);
       if
       :: released == Abandoned -> goto gone
       :: else -> released = Free; goto nextStep
       fi
    :: else
    fi;
#ifdef FAULT_3
    ending = TOLD_TO_END;
#endif
    if
    :: !ending -> goto waitForToken
    :: else
    fi;
    Lock(lifeMutex);
    if
#ifdef FAULT_5
    :: !loggerGone -> stoppedFlag = true
#else
    :: mine == current && !loggerGone -> stoppedFlag = true
#endif
    :: else
    fi;
    Unlock(lifeMutex);

gone:
    Release(_);
    Lock(lifeMutex);
    if
    :: loggerGone || mine != current || stoppedFlag
    :: else ->
       Refuse();
       Drop();
       atomic {
           Advance(Complete, Taken);
           endedLine = (endedLine && !moved) /* lost: no thread is left that could write it */
       }
       if
       :: moved -> Release(_)
       :: else
       fi;
       stoppedFlag = true
    fi;
    atomic {
        Unlock(lifeMutex);
        running = (running == mine -> 0 : running)
    }
}

/* A thread that logs: WriteHeader(), insertions, std::endl. */
proctype Composer(byte me) EXISTS
{
    LOCALS;
    byte lines = LINES;

    do
    :: lines == 0 -> break
    :: else ->
       lines--;
       if
       :: !enabledFlag -> skip
       :: else ->
          Take(false, false);
          if
          :: !taken
          :: else ->
             assert(!noticeTaken);
             UseBuffer();
             atomic {
                 Advance(Inserting, Open);
                 if
                 :: moved -> LeaveBuffer()
                 :: else
                 fi
             }
             if
             :: !moved -> LeaveStep()
             :: moved ->
                /* Append(std::endl). */
                atomic {
                    Advance(Open, Inserting);
                    if
                    :: moved -> UseBuffer()
                    :: else
                    fi
                }
                if
                :: moved ->
                   HandOver();
                   if
                   :: moved
                   :: else -> LeaveStep()
                   fi
                :: else
                fi
#ifdef THREAD_END
             :: moved -> break /* the thread ends with an open line */
#endif
             fi
          fi
       fi
    od;
    EndOfThread()
}

proctype Closer(byte me) EXISTS
{
    LOCALS;

    Close();
#ifdef REOPEN
    Enable();
#endif
#ifdef DETACH
    finished == started - 1; /* no thread may use a logger that is being destroyed */
    Detach();
#endif
    EndOfThread()
}

proctype Enabler(byte me) EXISTS
{
    LOCALS;

    Enable();
    EndOfThread()
}

/* RunIgnitionOff() */
proctype Ignition(byte me) EXISTS
{
    LOCALS;

    if
    :: !enabledFlag
    :: else -> /* WriteNotice() */
       Take(false, true);
       if
       :: !taken
       :: else ->
          atomic { noticeTaken = true; notice = true }
          UseBuffer();
          Refuse();
          if
          :: HandOver()
#ifdef THROW
          :: moved = true; LeaveStep(); goto close
#endif
          fi;
#ifdef FAULT_6
          TellToEnd();
          Notify();
#endif
          if
          :: moved
          :: else -> LeaveStep()
          fi
       fi
    fi;
close:
    Close();
    EndOfThread()
}

#ifdef FORK
/* A thread that forks. The child enables the logger and logs. */
proctype Forker(byte me) EXISTS
{
    LOCALS;

    Lock(mutex); /* LockForFork() */
    d_step {
        inChild = true;
        forkingProcess = _pid;
        firstProcessInChild = _nr_pr;
        started = 1;
        finished = 0;
        /* RenewInChild() */
        phase = Free; owner = 0; refusing = true; waiting = false; reserved = false;
        do
        :: len(queue) > 0 -> queue?next
        :: else -> break
        od;
        for (next : 0 .. threads - 1) {
            woken[next] = 0;
        }
        next = 0;
        wakePending = false;
        current++;
        toldToEnd = current;
        currentThread = 0;
        enabledFlag = false;
        stoppedFlag = true;
        control = 0;
        lineReady = 0;
        bufferUser = 0;
        endedLine = false;
        noticeTaken = false;
        notice = false;
        running = 0;
#ifndef FAULT_7
        lifeMutex = 0;
#endif
    }
    Unlock(mutex); /* UnlockAfterFork() */
    Enable();
    atomic { started++; run Composer(1) }
    EndOfThread()
}
#endif

/* ---- What must hold when no thread can take a step any more ---- */

active proctype Judge()
{
    byte me = mainThread;
    LOCALS;

    Enable();
    atomic {
        byte each = 1;
        do
        :: each <= COMPOSERS -> started++; run Composer(each); each++
        :: else -> break
        od;
#ifdef CLOSE
        started++; run Closer(closer);
#endif
#ifdef ENABLE
        started++; run Enabler(enabler);
#endif
#ifdef IGNITION
        started++; run Ignition(ignition);
#endif
#ifdef FORK
        started++; run Forker(forker);
#endif
    }
    atomic {
    timeout ->
        assert(finished == started);              /* no thread waits for ever */
        assert(!endedLine);                       /* no ended line is lost */
#ifdef DETACH
        assert(loggerGone && (phase == Free || phase == Abandoned));
#else
        assert(phase == Free && owner == 0);      /* the lock is free */
        assert(stoppedFlag == (running == 0));    /* the flag tells whether there is a writer */
#endif
        assert(bufferUser == 0);
        assert(mutex == 0 && lifeMutex == 0 && control == 0);
        assert(len(queue) == 0 && !waiting && !reserved && !wakePending);
        assert(enabledFlag == !refusing && !(enabledFlag && stoppedFlag))
    }
}
