/**
 * @file shared_order.h
 * @brief In which order the handles of shared objects come into being at load.
 *
 * "K40BUFFERS", the serial unit's, is first in every process and so first in the segment. The
 * order must not depend on that of files on a link line; destruction is the reverse.
 */
#ifndef SHARED_ORDER_H
#define SHARED_ORDER_H

#define MARVANE_INIT_SERIAL_HANDLE [[gnu::init_priority(201)]]
#define MARVANE_INIT_MAIN_HANDLES [[gnu::init_priority(202)]]

#endif  // SHARED_ORDER_H
