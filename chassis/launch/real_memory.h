#pragma once

// Takes the memory of this machine out of reach for this process and all that it becomes or starts:
// opening /dev/mem, /dev/kmem, /dev/port or a node like them needs CAP_SYS_RAWIO, in whatever way
// and by whatever name. Says on standard error if it cannot be given up. Throws std::runtime_error
// if an open descriptor leads there already.
void give_up_real_memory ();
