// What was shown, for the plots: up to an hour of each gripper.

const MOST = 36000; // an hour at ten readings a second
const TREMOR = 0.025; // two steps of a position; not a motion

/** The samples of one gripper, oldest first. */
export class History {
  constructor() {
    this.times = []; // milliseconds since 1970
    this.values = []; // of readRow(), null for a gap
  }

  add(time, values) {
    if (values === null && this.values.at(-1) === null) {
      return;
    }
    while (this.times.at(-1) > time) { // the clock was set back
      this.times.pop();
      this.values.pop();
    }
    this.times.push(time);
    this.values.push(values && { position: values.position, state: values.state, flags: values.flags });
    if (this.times.length > MOST + MOST / 10) {
      this.times.splice(0, MOST / 10);
      this.values.splice(0, MOST / 10);
    }
  }

  /** The index of the first sample not older than `time`. */
  since(time) {
    let low = 0;
    let high = this.times.length;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (this.times[middle] < time) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    return low;
  }

  /**
   * Times whose samples show the position between two times with about `most` points: short motions
   * do not get lost. Gaps are kept.
   */
  outline(from, to, most) {
    const first = this.since(from);
    const end = this.since(to + 1);
    const step = Math.max(1, Math.ceil((end - first) / most));
    const chosen = [];
    for (let i = first; i < end; i += step) {
      let low = i;
      let high = i;
      for (let k = i; k < Math.min(i + step, end); ++k) {
        if (!this.values[k]) {
          chosen.push(this.times[k]);
        } else {
          low = !this.values[low] || this.values[k].position < this.values[low].position ? k : low;
          high = !this.values[high] || this.values[k].position > this.values[high].position ? k : high;
        }
      }
      chosen.push(this.times[low], this.times[high]);
    }
    return chosen;
  }

  /** The indices of the samples between two times that begin or end a flag, and of the outermost. */
  flagChanges(from, to) {
    const first = this.since(from);
    const end = this.since(to + 1);
    const chosen = [];
    for (let i = first; i < end; ++i) {
      const isSame = (k) => this.values[k]?.flags === this.values[i]?.flags;
      if (i === first || i === end - 1 || !isSame(i - 1) || !isSame(i + 1)) {
        chosen.push(i);
      }
    }
    return chosen;
  }

  /** The times from `from` on during which the fingers moved, as [begin, end]. */
  motions(from) {
    const found = [];
    for (let i = Math.max(1, this.since(from)); i < this.times.length; ++i) {
      const before = this.values[i - 1];
      const after = this.values[i];
      if (before && after && Math.abs(after.position - before.position) > TREMOR) {
        const last = found.at(-1);
        if (last && last[1] === this.times[i - 1]) {
          last[1] = this.times[i];
        } else {
          found.push([this.times[i - 1], this.times[i]]);
        }
      }
    }
    return found;
  }
}
