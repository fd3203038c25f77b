// The last ten minutes, as curves: samples name what has counted, and nothing else.

const kRoom = 32;  // names in a sample

// {times, discards: Map(reason -> values a second), interfaces: Map(if_index -> {in_packets: values, ...})}
export function curves(samples) {
  const times = samples.map(sample => Date.parse(sample.time));
  // A sample that has all the room there is may have left something out.
  const gaps = what => samples.map(sample => (sample[what].length < kRoom ? 0 : null));
  const discards = new Map();
  const interfaces = new Map();
  samples.forEach((sample, i) => {
    for (const {name, per_second: rate} of sample.discards) {
      if (!discards.has(name)) discards.set(name, gaps('discards'));
      discards.get(name)[i] = rate;
    }
    for (const {if_index: index, ...rates} of sample.interfaces) {
      if (!interfaces.has(index)) interfaces.set(index, Object.fromEntries(Object.keys(rates).map(what => [what, gaps('interfaces')])));
      for (const [what, rate] of Object.entries(rates)) interfaces.get(index)[what][i] = rate;
    }
  });
  return {times, discards, interfaces};
}

const kSpan = 10 * 60 * 1000;

// Another sample behind those that are known; those that are too old go.
export function join(samples, sample) {
  if (samples.some(one => one.number === sample.number)) return samples;
  const all = [...samples, sample];
  return all.filter(one => Date.parse(one.time) > Date.parse(sample.time) - kSpan);
}
