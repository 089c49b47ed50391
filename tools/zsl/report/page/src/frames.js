/// The sensor's frames. `data` holds a list for each column, or one value where all are equal.
export class Frames {
    constructor(data) {
        this.data = data;
        this.count = data.count;
        this.times = Array.from({length: this.count}, (_, i) => this.get('timeNs', i) / 1e9);
        this.indexes = new Map(this.times.map((_, i) => [this.get('frameNo', i), i]));
    }

    get(column, i) {
        const values = this.data[column];
        return Array.isArray(values) ? values[i] : values;
    }

    /// The position of a frame number; undefined for none of the recording's.
    indexOf(frameNo) {
        return this.indexes.get(frameNo);
    }

    /// The position of the first frame at or after `time`, in s.
    atOrAfter(time) {
        let low = 0;
        let high = this.count;
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

    /// As the processor judges it: 'settled', 'moving' or 'unknown'.
    focus(i) {
        const mode = this.get('afMode', i);
        const state = this.get('afState', i);
        const lens = this.get('lensState', i);
        if (mode === null || state === null || lens === null) {
            return 'unknown';
        }
        const hasAutoFocus = mode >= 1 && mode <= 4;
        const isScanning = state === 0 || state === 1 || state === 3;
        const isAtRest = lens === 0 && state === 0;
        return hasAutoFocus && (lens === 1 || (isScanning && !isAtRest)) ? 'moving' : 'settled';
    }

    exposure(i) {
        const stable = this.get('aeStable', i);
        if (stable === null) {
            return 'unknown';
        }
        return stable === 1 ? 'settled' : 'moving';
    }
}
