import {element} from './dom.js';

/// The small copies of the frames' pictures. The page holds each once, however often it shows it, and
/// decodes what comes into sight. `copies`: {frameNo, width, height, jpeg}, the last in base64.
export class Pictures {
    constructor(copies) {
        this.copies = new Map(copies.map((copy) => [copy.frameNo, copy]));
        this.decoded = new Map();
    }

    has(frameNo) {
        return this.copies.has(frameNo);
    }

    /// By width over height, of any picture: those of a video are alike.
    get aspect() {
        const {width, height} = this.copies.values().next().value;
        return width / height;
    }

    url(frameNo) {
        const copy = this.copies.get(frameNo);
        if (!copy.url) {
            const bytes = Uint8Array.from(atob(copy.jpeg), (c) => c.charCodeAt(0));
            copy.url = URL.createObjectURL(new Blob([bytes], {type: 'image/jpeg'}));
            copy.jpeg = null;
        }
        return copy.url;
    }

    image(frameNo, alt) {
        const {width, height} = this.copies.get(frameNo);
        const image = element('img', {alt, width, height, decoding: 'sync', loading: 'lazy', draggable: false});
        image.style.setProperty('--aspect', width / height);
        image.src = this.url(frameNo);
        return image;
    }

    /// For a canvas; null until it is decoded, after which `onDecoded` is called.
    drawable(frameNo, onDecoded) {
        const known = this.decoded.get(frameNo);
        if (known) {
            return known.complete && known.naturalWidth > 0 ? known : null;
        }
        const image = element('img', {src: this.url(frameNo)});
        this.decoded.set(frameNo, image);
        image.decode().then(onDecoded, () => {});
        return null;
    }
}
