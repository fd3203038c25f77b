#ifndef HOST_MEASURE_PATH_TASK_H_
#define HOST_MEASURE_PATH_TASK_H_

#include <cstdint>

namespace qdt::host {

// A task of the simulated packet path: what the scheduler runs and what both measurements tell apart.
struct PathTask {
  static constexpr uint8_t kNoPoint = 0xFF;

  uint16_t id;    // as the scheduler trace names tasks; a selector node from 94 on
  uint8_t point;  // measurement point of the fast statistics
};

// Not task 0, the driver's other way in: the top-down view repeats that for every task that did not run.
constexpr PathTask kTaskReceive{10, 0};
constexpr PathTask kTaskClassify{24, 1};                 // the framework's ingress
constexpr PathTask kTaskLimit{79, 2};                    // ingress rate limits
constexpr PathTask kTaskFilter{83, 3};                   // ingress packet filters
constexpr PathTask kTaskSelect{94, PathTask::kNoPoint};  // chooses among the three that follow it
constexpr PathTask kTaskRoute4{26, 4};
constexpr PathTask kTaskRoute6{84, 4};
constexpr PathTask kTaskBridge{27, 4};
constexpr PathTask kTaskForward{25, 5};  // the framework's egress
constexpr PathTask kTaskTransmit{1, 6};
constexpr PathTask kTaskToHost{21, 6};
constexpr PathTask kTaskRelease{66, 7};  // of discarded packets

// Which task may follow which.
struct PathEdge {
  PathTask from, to;
};
constexpr PathEdge kPathEdges[] = {
    {kTaskReceive, kTaskClassify}, {kTaskClassify, kTaskLimit},   {kTaskLimit, kTaskFilter},
    {kTaskFilter, kTaskSelect},    {kTaskSelect, kTaskRoute4},    {kTaskSelect, kTaskRoute6},
    {kTaskSelect, kTaskBridge},    {kTaskRoute4, kTaskForward},   {kTaskRoute6, kTaskForward},
    {kTaskBridge, kTaskForward},   {kTaskForward, kTaskTransmit}, {kTaskForward, kTaskToHost},
    {kTaskReceive, kTaskRelease},  {kTaskClassify, kTaskRelease}, {kTaskLimit, kTaskRelease},
    {kTaskFilter, kTaskRelease},   {kTaskRoute4, kTaskRelease},   {kTaskRoute6, kTaskRelease},
    {kTaskBridge, kTaskRelease},   {kTaskForward, kTaskRelease},  {kTaskTransmit, kTaskRelease},
};

}  // namespace qdt::host

#endif  // HOST_MEASURE_PATH_TASK_H_
