// Opens the blocks of the page, and starts its script, which is one of them. The page has the hash
// of that script too, so the browser runs no other.
'use strict';

/**
 * What the program has written for the script: of each item the bytes in the contents, or -1 if it
 * does not open; of cut ones [item, head, skipped bytes, skipped lines]; the item of the run log, or
 * -1; of tools in turn the line in the run log, counted from the tool before, and the item, or -1.
 * @typedef {{chunk: number, sizes: number[], cut: number[][], log: number, tools: number[]}} Data
 */
/**
 * @typedef {{unpacked: (id: string) => Promise<Uint8Array<ArrayBuffer>>, data?: Data,
 *     bytesOf?: (item: number) => Promise<Uint8Array<ArrayBuffer>>,
 *     nameOf?: (item: number) => string}} Quendil
 */
/** @type {Quendil} */
const quendil = {
    /** The content of a block, as the program had it before it was compressed. */
    async unpacked(id) {
        const text = document.getElementById(id)?.textContent || '';
        const stream = new Blob([decoded(text)]).stream().pipeThrough(
            new DecompressionStream('gzip'));
        return new Uint8Array(await new Response(stream).arrayBuffer());
    },
};

/**
 * The inverse of encodedBytes in the program: 13 bits in two characters.
 * @param {string} text
 */
function decoded(text) {
    const values = new Uint8Array(128);
    for (let code = 33, value = 0; code < 127; ++code) {
        if (code !== 38 && code !== 60 && code !== 62) {  // characters of markup
            values[code] = value++;
        }
    }
    const length = text.length;
    const bytes = new Uint8Array(((length >> 1) * 13 + (length & 1) * 6) >> 3);
    let bits = 0;
    let count = 0;
    let size = 0;
    for (let i = 0; i < length; i += 2) {
        const last = i + 1 === length;
        const high = last ? 0 : values[text.charCodeAt(i + 1)] * 91;
        bits |= (values[text.charCodeAt(i)] + high) << count;
        for (count += last ? 6 : 13; count >= 8; count -= 8) {
            bytes[size++] = bits & 255;
            bits >>>= 8;
        }
    }
    return bytes;
}

if (typeof DecompressionStream === 'undefined') {
    const node = document.createElement('p');
    node.textContent = 'This browser cannot open the items: it has no DecompressionStream. Use ' +
        'Chrome 80, Firefox 113, Safari 16.4, or a later one.';
    document.getElementById('w')?.append(node);
} else {
    Promise.all([quendil.unpacked('d'), quendil.unpacked('p')]).then((blocks) => {
        const [data, text] = blocks.map((bytes) => new TextDecoder().decode(bytes));
        quendil.data = JSON.parse(data);
        const script = document.createElement('script');
        script.textContent = text;
        document.body.append(script);
    });
}
