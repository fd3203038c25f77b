// A directed graph in layers, from above to below: longest paths give the layers, the middle of the neighbours the order.
const kAcross = 22;  // between boxes of a layer

// Edges that close a circle are left out of the layers.
function acyclic(ids, edges) {
  const next = new Map(ids.map(id => [id, []]));
  for (const [from, to] of edges) next.get(from).push(to);
  const state = new Map();
  const kept = [];
  const visit = id => {
    state.set(id, 'open');
    for (const to of next.get(id)) {
      if (state.get(to) === 'open') continue;
      kept.push([id, to]);
      if (!state.has(to)) visit(to);
    }
    state.set(id, 'done');
  };
  const entered = new Set(edges.map(([, to]) => to));
  for (const id of [...ids.filter(one => !entered.has(one)), ...ids]) if (!state.has(id)) visit(id);
  return kept;
}

function depths(ids, edges) {
  const depth = new Map(ids.map(id => [id, 0]));
  // As many rounds as there are layers.
  for (let changed = true; changed;) {
    changed = false;
    for (const [from, to] of edges) {
      if (depth.get(to) > depth.get(from)) continue;
      depth.set(to, depth.get(from) + 1);
      changed = true;
    }
  }
  return depth;
}

const middle = boxes => boxes.reduce((sum, one) => sum + one.x, 0) / boxes.length;

// In their order, none over another, and as near to where they want to be as that allows.
function spread(layer, width) {
  const wish = layer.map(one => one.x);
  for (let i = 1; i < layer.length; i++) layer[i].x = Math.max(layer[i].x, layer[i - 1].x + width + kAcross);
  const shift = layer.reduce((sum, one, i) => sum + wish[i] - one.x, 0) / layer.length;
  for (const one of layer) one.x += shift;
}

// Boxes by their ids, {x, layer}, where x is the left side, and how wide and high all is.
export function layered(ids, edges, width) {
  const straight = acyclic(ids, edges);
  const depth = depths(ids, straight);
  const boxes = new Map(ids.map(id => [id, {id, layer: depth.get(id), x: 0, up: [], down: []}]));
  const layers = [];
  for (const box of boxes.values()) (layers[box.layer] ??= []).push(box);
  for (const [from, to] of straight) {
    if (depth.get(to) !== depth.get(from) + 1) continue;
    boxes.get(from).down.push(boxes.get(to));
    boxes.get(to).up.push(boxes.get(from));
  }
  for (const layer of layers) {
    layer.forEach((one, i) => { one.x = (i - (layer.length - 1) / 2) * (width + kAcross); });
  }
  for (let round = 0; round < 12; round++) {
    const down = round % 2 === 0;
    for (const layer of down ? layers : [...layers].reverse()) {
      for (const one of layer) {
        const near = down ? one.up : one.down;
        if (near.length) one.x = middle(near);
      }
      layer.sort((a, b) => a.x - b.x);
      spread(layer, width);
    }
  }
  const left = Math.min(...[...boxes.values()].map(one => one.x));
  for (const box of boxes.values()) box.x -= left;
  return {boxes, layers: layers.length, width: Math.max(...[...boxes.values()].map(one => one.x)) + width};
}
