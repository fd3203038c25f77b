// Records by cursor: pages are fetched when they are looked at, and only so many are kept. A place far away is reached by
// steps of large pages of one field alone, of which nothing is kept but where they end.
const kPage = 200;
const kKept = 60;

export class Pages {
  // fetch(cursor, limit, onlyKeys) gives {records, next}; `expected` is how many there should be, 0 when nobody knows.
  constructor({fetch, expected = 0, changed, failed, stride = 1000}) {
    Object.assign(this, {fetchPage: fetch, expected, changed, failed, stride});
    this.anchors = [[0, null]];  // index of a record, and the cursor that leads to it
    this.pages = new Map();
    this.wanted = [];
    this.total = null;
    this.working = false;
  }

  // The record at an index; undefined while it is on its way.
  at(index) { return this.pages.get(Math.floor(index / kPage))?.[index % kPage]; }

  // How many rows the list has, as far as one knows now.
  get length() {
    if (this.total !== null) return this.total;
    const known = this.anchors.at(-1)[0];
    return Math.max(this.expected, known + (this.anchors.length > 1 || !this.pages.size ? kPage : 0));
  }
  get known() { return this.total !== null; }

  want(first, last) {
    const pages = [];
    for (let page = Math.floor(first / kPage); page <= Math.floor(Math.max(first, last) / kPage); page++) pages.push(page);
    this.wanted = pages;
    if (!this.working) void this.work();
  }

  async work() {
    this.working = true;
    try {
      for (;;) {
        const page = this.wanted.find(one => !this.pages.has(one) && (this.total === null || one * kPage < this.total));
        if (page === undefined) break;
        await this.step(page);
      }
    } catch (failure) {
      this.wanted = [];
      this.failed(failure);
    } finally {
      this.working = false;
    }
  }

  // One request towards a page: the page itself, or a large step that ends nearer to it.
  async step(page) {
    const start = page * kPage;
    const [from, cursor] = this.anchors.findLast(([index]) => index <= start);
    const far = start - from;
    const limit = far ? Math.min(far, this.stride) : kPage;
    const {records, next} = await this.fetchPage(cursor, limit, far > 0);
    const end = from + records.length;
    if (next && records.length) this.anchor(end, next);
    else this.total = end;
    if (!far) this.keep(page, records);
    this.changed();
  }

  anchor(index, cursor) {
    const place = this.anchors.findIndex(([other]) => other >= index);
    if (place < 0) this.anchors.push([index, cursor]);
    else if (this.anchors[place][0] !== index) this.anchors.splice(place, 0, [index, cursor]);
  }

  keep(page, records) {
    this.pages.set(page, records);
    for (const old of this.pages.keys()) {
      if (this.pages.size <= kKept) break;
      if (!this.wanted.includes(old)) this.pages.delete(old);
    }
  }
}

// Records that are all here: answers of SQL.
export class Whole {
  constructor(records) { this.records = records; }
  at(index) { return this.records[index]; }
  get length() { return this.records.length; }
  get known() { return true; }
  want() {}
}
