/*
 * Model of the hand-over of a log line, for the model checker Spin. Check.sh runs it.
 *
 * Spin tries every order in which the steps of the threads can follow each other, and reports an
 * order that violates an assert(). README.md says how to read and change this file.
 *
 * The names are those of Tolvex/Log/LoggerCore and of LineLock, LineQueue and Writer in
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

mtype = { Free, Open, Inserting, Dropped, Complete, Taken, Writing };

mtype phase = Free;
byte owner = 0;
bool refusing = true;
bool waiting = false;
bool reserved = false;

byte mutex = 0; /* the thread that holds LineQueue::mutex */
chan queue = [COMPOSERS + 3] of { byte }; /* LineQueue: the threads that wait in Take() */
bool woken[threads];                      /* LineQueue::Place::woken */
byte semaphore[threads];                  /* LineQueue::Place::semaphore */

/* ---- Writer; the flags are LoggerState::enabled (for Spin a reserved word) and stopped ---- */

bool enabledFlag = false;
bool stoppedFlag = true;
byte counted = 0; /* Logger::enabledOutputs; the calls for the text do nothing while it is 0 */
byte current = 0;
byte toldToEnd = 0;
byte writerMutex = 0; /* the thread that holds LoggerState::writerMutex */

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
bool loggerGone = false;     /* the logger is destroyed, and its policy with it */

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

/* allowed: whether the flags that are set are among the allowed ones. */
inline Advance(from, to, allowed)
{
    d_step {
        moved = (phase == from && owner == (from == Free || from == Complete -> 0 : me) && (allowed));
        if
        :: moved ->
           phase = to;
           owner = (to == Complete -> 0 : me)
        :: else
        fi
    }
}

inline WakeFirst()
{
    atomic {
        Lock(mutex);
        if
        :: len(queue) > 0 ->
           queue?<next>;
           if
           :: woken[next] -> next = 0
           :: else -> woken[next] = true
           fi
        :: else
        fi;
        Unlock(mutex)
    }
    if
    :: next != 0 -> atomic { semaphore[next]++; next = 0 } /* Signal() */
    :: else
    fi
}

/* The first or second try of Take(). */
inline Try(isPolicy, mayUseReserved)
{
    atomic {
        Advance(Free, Inserting, (isPolicy || !refusing) && (mayUseReserved || !reserved));
        taken = moved;
        moved = false
    }
}

/* A thread that is not first in the queue does not try. */
inline TryAsFirst(isPolicy)
{
    if
    :: queue?[eval(me)] -> Try(isPolicy, claimed)
    :: else -> taken = false
    fi
}

/* mayGiveUp: the deadline may pass at any moment. The spin before the sleep is left out. */
inline Take(isPolicy, mayGiveUp)
{
    Try(isPolicy, false);
    if
    :: taken
    :: else -> /* Await() */
       atomic {
           Lock(mutex);
           queue!me; /* Append() */
#ifndef FAULT_1
           waiting = true
#endif
       }
       do
       :: true ->
#ifndef FAULT_8
          refused = (refusing && !isPolicy); /* refused */
#endif
          TryAsFirst(isPolicy);
#ifdef FAULT_1
          waiting = true;
#endif
#ifdef FAULT_8
          refused = (refusing && !isPolicy);
#endif
          if
          :: taken || refused -> refused = false; break
          :: else -> Unlock(mutex)
          fi;
          if /* Sleep() */
          :: atomic { semaphore[me] > 0 -> semaphore[me]-- }
             Lock(mutex)
          :: mayGiveUp ->
             Lock(mutex);
             if
             :: !woken[me] -> break
             :: else -> atomic { semaphore[me] > 0 -> semaphore[me]-- }
             fi
          fi;
          woken[me] = false;
          if
          :: queue?[eval(me)] -> atomic { claimed = true; reserved = true }
          :: else
          fi
       od;
       atomic {
           queue??eval(me); /* Remove() */
           assert(!woken[me] && semaphore[me] == 0); /* no thread signals a place that is gone */
           reserved = (reserved && !claimed);
           waiting = (waiting && len(queue) > 0);
           claimed = false;
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

inline Release()
{
    d_step {
        wake = false;
        if
        :: owner == me -> wake = waiting; phase = Free; owner = 0; notice = false
        :: else
        fi
    }
    if
    :: wake -> wake = false; WakeFirst()
    :: else
    fi
}

inline Refuse()
{
    refusing = true;
    atomic {
        Lock(mutex);
        for (next : 0 .. threads - 1) { /* WakeAll() */
            if
            :: queue??[eval(next)] && !woken[next] -> woken[next] = true; semaphore[next]++
            :: else
            fi
        }
        next = 0;
        Unlock(mutex)
    }
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

/* ---- Writer ---- */

/* The flag first, then the word. */
inline AwaitEndOrHang()
{
    do
    :: true ->
       moved = stoppedFlag;
       seen = phase;
       if
       :: seen == Writing || (moved && seen != Taken) -> break
       :: else
       fi;
       (phase == Writing || (stoppedFlag && phase != Taken))
    od;
    atomic { moved = false; seen = Free }
}

/* Thread::Thread() */
inline MakeThread()
{
    Lock(writerMutex);
    stoppedFlag = false;
    atomic { current++; number = current; assert(firstWriter + number < threads) }
    Unlock(writerMutex)
}

inline Admit()
{
    Lock(writerMutex);
    if
#ifdef FAULT_6
    :: true ->
#elif defined(FAULT_12)
    :: !stoppedFlag ->
#else
    :: toldToEnd != current ->
#endif
#ifndef FAULT_9
       counted++;
#endif
#ifndef FAULT_10
       enabledFlag = true;
#endif
       atomic { refusing = false; noticeTaken = false }
#ifdef FAULT_9
       ; counted++
#endif
#ifdef FAULT_10
       ; enabledFlag = true
#endif
    :: else
    fi;
    Unlock(writerMutex)
}

inline TellToEnd()
{
    Refuse();
#ifdef FAULT_2
    toldToEnd = current;
#endif
    Drop();
    atomic { moved = enabledFlag; enabledFlag = false }
    atomic {
        if
        :: moved -> counted--
        :: else
        fi;
        moved = false
    }
#ifndef FAULT_2
    toldToEnd = current
#endif
}

/* Thread::~Thread(): the end of a writer, or of one whose thread could not be created. */
inline EndThread(mine)
{
    Lock(writerMutex);
    if
#ifdef FAULT_5
    :: true ->
#else
    :: mine == current ->
#endif
       TellToEnd();
       atomic {
           Advance(Complete, Taken, true); /* lost: no thread is left that could write it */
#if defined(CANCEL) || defined(NO_THREAD)
           endedLine = (endedLine && !moved)
#else
           assert(!moved)
#endif
       }
       if
       :: moved -> Release()
       :: else
       fi;
       stoppedFlag = true
    :: else
    fi;
    Unlock(writerMutex)
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
    Release()
}

/* Leaves `moved` at whether the line was handed over. */
inline HandOver()
{
    atomic {
        Advance(Inserting, Complete, true);
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
inline Stop()
{
    Lock(writerMutex);
    TellToEnd();
    Unlock(writerMutex);
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
       Stop();
       AwaitEndOrHang();
       MakeThread();
       if
       :: atomic { true -> running = number; run Writer(firstWriter + number, number); number = 0 }
          if
          :: true -> taken = true /* without an output */
          :: CallPolicy()
          fi;
          if
          :: taken -> Admit()
          :: else -> Stop()
          fi
#ifdef NO_THREAD
       :: number = 0;
          EndThread(current)
#endif
       fi
    fi;
    Unlock(control)
}

/* The deadline may pass at any moment. */
inline TryControl()
{
    if
    :: atomic { control == 0 -> control = me; controls = true }
    :: true
    fi
}

inline Close()
{
    Lock(control);
    Stop();
    AwaitStopped();
    CallPolicy();
    Unlock(control)
}

inline Destroy()
{
    AwaitEndOrHang();
    loggerGone = true
}

inline EndOfThread()
{
    Release(); /* DropLinesOfThread() */
    finished++
}

#define LOCALS                                                                                     \
    bool taken = false;                                                                            \
    bool moved = false;                                                                            \
    bool wake = false;                                                                             \
    mtype seen = Free;                                                                             \
    byte next = 0;                                                                                 \
    bool refused = false;                                                                          \
    bool claimed = false;                                                                          \
    byte number = 0

/* ---- The threads ---- */

#define TOLD_TO_END (toldToEnd >= mine)

/* Writer::Thread::Run() */
proctype Writer(byte me; byte mine) EXISTS
{
    bool moved = false;
    bool wake = false;
    bool ending = false;
    byte next = 0;

nextLine:
    if
    :: TOLD_TO_END
    :: else ->
       if
       :: atomic { lineReady > 0 -> lineReady-- }
#ifdef CANCEL
       :: goto gone
#endif
       fi
    fi;
#ifndef FAULT_3
    ending = TOLD_TO_END;
#endif
    if
    :: mine != current -> goto ended
    :: else
    fi;
    atomic {
        Advance(Complete, Taken, true);
        if
        :: moved -> assert(endedLine); endedLine = false; UseBuffer()
        :: else
        fi
    }
    if
    :: moved ->
       atomic { LeaveBuffer(); Advance(Taken, Writing, true); assert(!loggerGone) }
       assert(notice || !noticeTaken); /* no line follows the last notice */
       if
       :: true
#ifdef CANCEL
       :: goto gone /* cancelled in Write() of the policy */
#endif
#ifdef DETACH
       :: true -> loggerGone /* hangs in Write() of the policy */
#endif
       fi;
       Release();
       goto nextLine
    :: else
    fi;
#ifdef FAULT_3
    ending = TOLD_TO_END;
#endif
    if
    :: !ending -> goto nextLine
    :: else
    fi;

ended:
#ifndef FAULT_11
    Notify();
#endif
gone:
    Release();
    EndThread(mine);
    atomic { running = (running == mine -> 0 : running) }
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
                 Advance(Inserting, Open, true);
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
                    assert((counted > 0 && enabledFlag) || phase != Open || owner != me);
                    Advance(Open, Inserting, true);
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
#ifdef RETRY
    Enable(); /* does nothing unless the first one has given up */
#endif
#ifdef CLOSE_AGAIN
    Close();
#endif
#ifdef DETACH
    finished == started - 1; /* no thread may use a logger that is being destroyed */
    Destroy();
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
    bool controls = false;

    if
    :: enabledFlag -> TryControl() /* WriteNotice() */
    :: else
    fi;
    if
    :: controls ->
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
          :: LeaveStep(); moved = true
#endif
          fi;
          if
          :: moved
          :: else -> LeaveStep()
          fi
       fi;
       atomic { taken = false; moved = false; controls = false; Unlock(control) }
    :: else
    fi;
    TryControl(); /* Close() */
    Stop();
    if
    :: controls -> AwaitStopped(); CallPolicy(); Unlock(control)
    :: else
    fi;
    EndOfThread()
}

#ifdef FORK
/* A thread that forks. The child enables the logger and logs. */
proctype Forker(byte me) EXISTS
{
    LOCALS;

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
            woken[next] = false;
            semaphore[next] = 0;
        }
        next = 0;
        current++;
        toldToEnd = current;
        enabledFlag = false;
        counted = 0;
        stoppedFlag = true;
        control = 0;
        mutex = 0;
        lineReady = 0;
        bufferUser = 0;
        endedLine = false;
        noticeTaken = false;
        notice = false;
        running = 0;
#ifndef FAULT_7
        writerMutex = 0;
#endif
    }
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
#ifdef IGNITION
        started++; run Ignition(ignition);
#endif
#ifdef CLOSE
        started++; run Closer(closer);
#endif
#ifdef ENABLE
        started++; run Enabler(enabler);
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
        assert(loggerGone);
#endif
        assert(phase == Free && owner == 0);      /* the lock is free */
        assert(stoppedFlag == (running == 0));    /* the flag tells whether there is a writer */
        assert(bufferUser == 0);
        assert(mutex == 0 && writerMutex == 0 && control == 0);
        assert(len(queue) == 0 && !waiting && !reserved);
        assert(enabledFlag == !refusing && !(enabledFlag && stoppedFlag));
        assert(counted == enabledFlag)
    }
}
