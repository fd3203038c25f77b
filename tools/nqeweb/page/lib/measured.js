// The measurement document as flat lists.
export function tasksOf({scheduler}) {
  if (!scheduler) return {list: [], edges: [], traces: null};
  const list = scheduler.contexts.flatMap(context => context.tasks.map(task => ({core: context.number, id: task.id, name: task.name, runs: task.runs, packets: task.packets, cycles: task.a, most: task.maximum})));
  return {list, edges: scheduler.edges.map(edge => [edge.from, edge.to]), traces: scheduler.traces};
}

export function pointsOf({fast}) {
  if (!fast) return {list: [], events: [], mode: 0};
  const list = fast.cores.flatMap(core => core.points.map(point => ({core: core.number, id: point.point, hits: point.hits, packets: point.packets, cycles: point.cycles ?? 0, known: point.cycles !== null, events: point.events})));
  return {list, events: fast.events, mode: fast.mode};
}
