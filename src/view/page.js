// The script of the page: opens items, and searches them. Texts from the archive are put in as text
// only, never as markup.
'use strict';
{
    // What the viewer shows: the bytes, where each row begins in them, and the gap of a cut item,
    // which is before row `gap`; numbers of rows after it are higher by `shift`.
    /**
     * @typedef {{item: number, bytes: Uint8Array<ArrayBuffer>, starts: number[], gap: number, shift: number,
     *     skipped: number, lines: number}} View
     */
    /** @typedef {{from: number, to: number, node: HTMLElement, filled: boolean}} Block */

    const CHUNKS_KEPT = 4;
    const ROWS_OF_BLOCK = 200;
    const ROWS_OF_SECTION = 50000;  // browsers limit the height of an element
    const LINE_SHOWN = 4000;        // bytes of a line, and of each continuation
    const MOST_HITS = 1000;
    const EXCERPT = 60;             // characters before a hit; after it twice as many
    const PART_OF_LINE = 1000000;   // characters
    const BUSY = 30;                // milliseconds without an answer to the user

    // Control characters, marks of writing direction, line separators, and the bytes that are not
    // UTF-8, which the decoder below makes lone surrogates.
    const INVISIBLE = new RegExp('[\\x00-\\x08\\x0a-\\x1f\\x7f-\\x9f\\u061c\\u200e\\u200f' +
        '\\u2028-\\u202e\\u2066-\\u2069\\ufeff\\ufff9-\\ufffb\\ufffe\\uffff\\u{e0000}-\\u{e007f}' +
        '\\udc80-\\udcff]+', 'gu');

    /** @param {string} id @returns {HTMLElement} */
    const $ = (id) => /** @type {HTMLElement} */ (document.getElementById(id));
    /** @param {string} id @returns {HTMLInputElement} */
    const input = (id) => /** @type {HTMLInputElement} */ ($(id));

    /**
     * @param {Node} parent
     * @param {string} tag
     * @param {string} text
     * @param {string} [style] its class
     * @returns {HTMLElement}
     */
    function add(parent, tag, text, style) {
        const node = document.createElement(tag);
        if (style) {
            node.className = style;
        }
        node.textContent = text;
        parent.appendChild(node);
        return node;
    }

    /**
     * @param {Node} parent
     * @param {string} target
     * @param {string} text
     * @returns {HTMLAnchorElement}
     */
    function addLink(parent, target, text) {
        const node = /** @type {HTMLAnchorElement} */ (add(parent, 'a', text));
        node.href = target;
        return node;
    }

    /** @param {number} number */
    const grouped = (number) => number.toLocaleString('en');
    /** @param {number} number @param {string} what */
    const counted = (number, what) => `${grouped(number)} ${what}${number === 1 ? '' : 's'}`;
    /** Lets the page answer between two parts of long work. */
    const pause = () => new Promise((done) => setTimeout(done));

    // ---- Contents ---------------------------------------------------------------------------

    const data = /** @type {Data} */ (quendil.data);
    const offsets = [0];
    for (const size of data.sizes) {
        offsets.push(offsets[offsets.length - 1] + Math.max(size, 0));
    }
    const cuts = new Map(data.cut.map((cut) => [cut[0], cut]));
    /** @param {number} item */
    const opens = (item) => data.sizes[item] >= 0;

    /** @type {Map<number, Promise<Uint8Array<ArrayBuffer>>>} */
    const chunks = new Map();

    /** @param {number} number */
    function chunk(number) {
        const bytes = chunks.get(number) || quendil.unpacked('c' + number);
        chunks.delete(number);
        chunks.set(number, bytes);
        if (chunks.size > CHUNKS_KEPT) {
            chunks.delete(chunks.keys().next().value ?? 0);
        }
        return bytes;
    }

    /**
     * The bytes of an item, in parts.
     * @param {number} item
     * @returns {AsyncGenerator<Uint8Array>}
     */
    async function* partsOf(item) {
        const end = offsets[item + 1];
        for (let at = offsets[item]; at < end;) {
            const number = Math.floor(at / data.chunk);
            const bytes = await chunk(number);
            const begin = at - number * data.chunk;
            const part = bytes.subarray(begin, Math.min(bytes.length, begin + end - at));
            if (part.length === 0) {
                throw new Error('The contents of the page are incomplete.');
            }
            yield part;
            at += part.length;
        }
    }

    /** @param {number} item */
    async function bytesOf(item) {
        const bytes = new Uint8Array(data.sizes[item]);
        let at = 0;
        for await (const part of partsOf(item)) {
            bytes.set(part, at);
            at += part.length;
        }
        return bytes;
    }

    // ---- Text -------------------------------------------------------------------------------

    const strict = new TextDecoder('utf-8', {fatal: true, ignoreBOM: true});

    /**
     * The bytes as text, in which each byte that is not UTF-8 is the lone surrogate U+DC00 + byte.
     * @param {Uint8Array} bytes
     */
    function textOf(bytes) {
        try {
            return strict.decode(bytes);
        } catch {
            let text = '';
            for (let at = 0; at < bytes.length;) {
                const size = characterSize(bytes, at);
                text += size > 0 ? strict.decode(bytes.subarray(at, at + size))
                                 : String.fromCharCode(0xdc00 + bytes[at]);
                at += Math.max(size, 1);
            }
            return text;
        }
    }

    /**
     * The size of the UTF-8 character that begins there, or of a run of ASCII; 0 if there is none.
     * @param {Uint8Array} bytes
     * @param {number} at
     */
    function characterSize(bytes, at) {
        let end = at;
        while (end < bytes.length && bytes[end] < 0x80) {
            ++end;
        }
        if (end > at) {
            return end - at;
        }
        const first = bytes[at];
        const second = bytes[at + 1];
        const size = first < 0xc2 || first > 0xf4 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
        const wrong = (first === 0xe0 && second < 0xa0) || (first === 0xed && second > 0x9f) ||
            (first === 0xf0 && second < 0x90) || (first === 0xf4 && second > 0x8f);
        for (let i = 1; i < size; ++i) {
            if ((bytes[at + i] & 0xc0) !== 0x80) {
                return 0;
            }
        }
        return wrong ? 0 : size;
    }

    /** @param {string} text */
    function visible(text) {
        let result = '';
        for (const character of text) {
            const code = character.codePointAt(0) || 0;
            const digits = code.toString(16);
            result += code < 0x80 ? '\\x' + digits.padStart(2, '0') :
                code >= 0xdc80 && code <= 0xdcff ? '\\x' + (code - 0xdc00).toString(16) :
                code < 0x10000 ? '\\u' + digits.padStart(4, '0') : '\\u{' + digits + '}';
        }
        return result;
    }

    /**
     * Adds a text with visible escapes.
     * @param {Node} parent
     * @param {string} text
     */
    function addVisible(parent, text) {
        let at = 0;
        for (const match of text.matchAll(INVISIBLE)) {
            parent.appendChild(document.createTextNode(text.slice(at, match.index)));
            add(parent, 's', visible(match[0]));
            at = match.index + match[0].length;
        }
        parent.appendChild(document.createTextNode(text.slice(at)));
    }

    /**
     * Adds a text with visible escapes, in which what matches the pattern is marked.
     * @param {Node} parent
     * @param {string} text
     * @param {RegExp | null} pattern
     */
    function addText(parent, text, pattern) {
        let at = 0;
        for (const match of pattern ? text.matchAll(pattern) : []) {
            addVisible(parent, text.slice(at, match.index));
            addVisible(add(parent, 'mark', ''), match[0]);
            at = match.index + match[0].length;
        }
        addVisible(parent, text.slice(at));
    }

    /**
     * Plain text, without regard to case.
     * @param {string} text
     */
    function patternOf(text) {
        return new RegExp(text.replace(/[\\^$.*+?()[\]{}|/]/g, '\\$&'), 'giu');
    }

    // ---- Lines of an item -------------------------------------------------------------------

    /**
     * @param {Uint8Array} bytes
     * @param {number} begin
     * @param {number} end
     * @param {number[]} starts
     */
    function addStarts(bytes, begin, end, starts) {
        for (let at = begin; at < end;) {
            starts.push(at);
            const feed = bytes.indexOf(10, at);
            at = feed < 0 ? end : Math.min(feed + 1, end);
        }
    }

    /**
     * @param {number} item
     * @param {Uint8Array<ArrayBuffer>} bytes
     * @returns {View}
     */
    function viewOf(item, bytes) {
        const [, head, skipped, lines] = cuts.get(item) || [item, bytes.length, 0, 0];
        /** @type {number[]} */
        const starts = [];
        addStarts(bytes, 0, head, starts);
        const gap = starts.length;
        addStarts(bytes, head, bytes.length, starts);
        const whole = head === 0 || bytes[head - 1] === 10;
        return {item, bytes, starts, gap, shift: lines - (whole ? 0 : 1), skipped, lines};
    }

    /** @param {View} view @param {number} row */
    const lineOf = (view, row) => row + 1 + (view.skipped > 0 && row >= view.gap ? view.shift : 0);

    /**
     * The row of a line; -1 if it is in the gap, and -2 if the item has no such line.
     * @param {View} view
     * @param {number} line
     */
    function rowOf(view, line) {
        if (line <= view.gap) {
            return line - 1;
        }
        const row = line - 1 - (view.skipped > 0 ? view.shift : 0);
        return view.skipped > 0 && row < view.gap ? -1 : row < view.starts.length ? row : -2;
    }

    /**
     * The bytes of a row without its line feed.
     * @param {View} view
     * @param {number} row
     */
    function bytesOfRow(view, row) {
        const end = row + 1 < view.starts.length ? view.starts[row + 1] : view.bytes.length;
        const bytes = view.bytes.subarray(view.starts[row], end);
        return bytes[bytes.length - 1] === 10 ? bytes.subarray(0, -1) : bytes;
    }

    // ---- Viewer -----------------------------------------------------------------------------

    const viewer = /** @type {HTMLDialogElement} */ ($('v'));
    const body = $('vb');
    /** @type {View | null} */
    let view = null;
    let section = -1;
    /** @type {Block[]} */
    let blocks = [];
    let marked = -1;  // row
    /** @type {RegExp | null} */
    let pattern = null;
    let opened = 0;  // counts what was opened, so that late answers are known
    let pushed = false;  // whether the page has added the viewer to the history

    const observer = new IntersectionObserver((entries) => {
        for (const entry of entries) {
            if (entry.isIntersecting) {
                const block = blocks.find((each) => each.node === entry.target);
                if (block) {
                    fill(block);
                }
            }
        }
    }, {root: body, rootMargin: '1000px'});

    /** @param {Block} block */
    function fill(block) {
        if (block.filled || !view) {
            return;
        }
        block.filled = true;
        block.node.style.height = '';
        block.node.textContent = '';
        for (let row = block.from; row < block.to; ++row) {
            const node = add(block.node, 'div', '', row === marked ? 'm' : '');
            const line = lineOf(view, row);
            const link = addLink(node, `#i${view.item}L${line}`, String(line));
            link.tabIndex = -1;
            addRow(add(node, 'code', ''), bytesOfRow(view, row), 0, LINE_SHOWN);
        }
    }

    /**
     * Adds the bytes of a long row up to a limit, and a button for more.
     * @param {HTMLElement} parent
     * @param {Uint8Array} bytes
     * @param {number} begin
     * @param {number} most
     */
    function addRow(parent, bytes, begin, most) {
        let end = bytes.length;
        if (end - begin > most) {
            end = begin + most;
            for (let back = 0; back < 3 && (bytes[end] & 0xc0) === 0x80; ++back) {
                --end;
            }
        }
        addText(parent, textOf(bytes.subarray(begin, end)), pattern);
        if (end < bytes.length) {
            const button = add(parent, 'button', `${counted(bytes.length - end, 'byte')} more`);
            button.addEventListener('click', () => {
                button.remove();
                addRow(parent, bytes, end, LINE_SHOWN * 10);
            });
        }
    }

    /** @param {number} number */
    function showSection(number) {
        if (!view) {
            return;
        }
        observer.disconnect();
        section = number;
        blocks = [];
        body.textContent = '';
        const begin = number * ROWS_OF_SECTION;
        const end = Math.min(begin + ROWS_OF_SECTION, view.starts.length);
        addTurn(number - 1, 'Earlier lines');
        for (let from = begin; from < end;) {
            if (view.skipped > 0 && from === view.gap) {
                addGap();
            }
            const limit = view.skipped > 0 && from < view.gap ? view.gap : end;
            const to = Math.min(from + ROWS_OF_BLOCK, limit, end);
            const node = add(body, 'div', '', 'z');
            node.style.height = `${(to - from) * 1.45}em`;
            blocks.push({from, to, node, filled: false});
            from = to;
        }
        if (view.skipped > 0 && end === view.gap) {
            addGap();
        }
        if (view.bytes.length === 0) {
            add(body, 'p', 'This item is empty.');
        }
        addTurn(number + 1, 'Later lines');
        blocks.slice(0, 1).forEach(fill);
        blocks.forEach((block) => observer.observe(block.node));
    }

    function addGap() {
        if (view) {
            add(body, 'p', `${counted(view.skipped, 'byte')} with ` +
                `${counted(view.lines, 'line feed')} are left out here: the page is limited.`, 'gap');
        }
    }

    /**
     * A button to the section before or after this one, if there is one.
     * @param {number} number
     * @param {string} text
     */
    function addTurn(number, text) {
        if (view && number >= 0 && number * ROWS_OF_SECTION < view.starts.length) {
            add(body, 'button', text, 'turn').addEventListener('click', () => {
                showSection(number);
                body.scrollTop = 0;
                body.focus();
            });
        }
    }

    /**
     * Scrolls to a row and marks it.
     * @param {number} row
     */
    function goTo(row) {
        const number = Math.floor(row / ROWS_OF_SECTION);
        if (number !== section) {
            showSection(number);
        }
        body.querySelector('.m')?.classList.remove('m');
        marked = row;
        const block = blocks.find((each) => row >= each.from && row < each.to);
        if (block) {
            fill(block);
            const node = block.node.children[row - block.from];
            node.classList.add('m');
            node.scrollIntoView({block: 'center'});
            body.scrollLeft = 0;
        }
    }

    /** @param {string} text */
    function tell(text) {
        $('vm').textContent = text;
    }

    /**
     * Marks a line, or tells why not.
     * @param {number} line 0 for none
     */
    function goToLine(line) {
        if (!view) {
            return;
        }
        body.querySelector('.m')?.classList.remove('m');
        marked = -1;
        const last = view.starts.length;
        const summary = counted(last > 0 ? lineOf(view, last - 1) : 0, 'line');
        const row = line > 0 ? rowOf(view, line) : -3;
        if (row >= 0) {
            goTo(row);
            tell(`Line ${grouped(line)} of ${summary}`);
        } else if (row === -1) {
            showSection(Math.floor(view.gap / ROWS_OF_SECTION));
            body.querySelector('.gap')?.scrollIntoView({block: 'center'});
            tell(`Line ${grouped(line)} is in the part that is left out.`);
        } else {
            tell(row === -2 ? `There is no line ${grouped(line)}: the item has ${summary}.`
                            : summary);
        }
    }

    /** @param {number} item */
    const entryOf = (item) => $('i' + item);

    /** @param {number} item */
    function nameOf(item) {
        const entry = entryOf(item);
        const heading = entry.closest('details')?.querySelector('h3')?.textContent || '';
        const name = entry.firstChild?.textContent || '';
        return heading === '/' ? name : `${heading}/${name}`;
    }

    /** @param {number} item */
    const descriptionOf = (item) => entryOf(item).lastChild?.textContent?.trim() || '';

    /**
     * @param {number} item
     * @param {number} line
     */
    async function show(item, line) {
        const number = ++opened;
        if (!viewer.open) {
            viewer.showModal();
        }
        if (view?.item !== item) {
            view = null;
            section = -1;
            pattern = null;
            input('vf').value = '';
            observer.disconnect();
            body.textContent = '';
            $('vt').textContent = nameOf(item);
            const size = entryOf(item).querySelector('i')?.textContent || '';
            $('vd').textContent = [descriptionOf(item), size].filter(Boolean).join(' \u00b7 ');
            tell('Opening...');
            try {
                const bytes = await bytesOf(item);
                if (number !== opened) {
                    return;
                }
                view = viewOf(item, bytes);
            } catch (error) {
                tell(`The item cannot be opened: ${error}`);
                return;
            }
            showSection(0);
            body.scrollTop = 0;
        }
        goToLine(line);
        body.focus({preventScroll: true});
    }

    function hide() {
        ++opened;
        view = null;
        blocks = [];
        observer.disconnect();
        body.textContent = '';
        if (viewer.open) {
            viewer.close();
        }
    }

    /** The item and the line of the address; null if it has none. */
    function target() {
        const match = /^#i(\d+)(?:L(\d+))?$/.exec(location.hash);
        return match && opens(Number(match[1])) ? [Number(match[1]), Number(match[2] || 0)] : null;
    }

    let shown = '';
    function route() {
        if (location.hash === shown && viewer.open) {
            return;
        }
        shown = location.hash;
        const place = target();
        if (place) {
            show(place[0], place[1]);
        } else {
            pushed = false;
            hide();
        }
    }

    /**
     * Goes to a place without scrolling the page behind the viewer.
     * @param {string} hash
     */
    function visit(hash) {
        if (viewer.open) {
            history.replaceState(null, '', hash);
        } else {
            history.pushState(null, '', hash);
            pushed = true;
        }
        route();
    }

    viewer.addEventListener('close', () => {
        if (!target()) {
            return;
        }
        if (pushed) {
            history.back();
        } else {
            history.replaceState(null, '', '#');
            route();
        }
    });

    document.addEventListener('click', (event) => {
        const node = event.target instanceof Element ? event.target.closest('a') : null;
        const hash = node?.getAttribute('href') || '';
        if (node?.closest('nav') && input('s').value) {
            input('s').value = '';
            search();
        }
        if (/^#i\d/.test(hash) && !event.ctrlKey && !event.metaKey && !event.shiftKey) {
            event.preventDefault();
            visit(hash);
        }
    });

    /** @param {number} step */
    function turn(step) {
        const place = target();
        if (place) {
            const at = files.indexOf(place[0]) + step;
            if (at >= 0 && at < files.length) {
                visit('#i' + files[at]);
            }
        }
    }

    function save() {
        if (view) {
            const link = document.createElement('a');
            const address = URL.createObjectURL(new Blob([view.bytes], {type: 'application/octet-stream'}));
            link.href = address;
            link.download = nameOf(view.item).replace(/[^\w.-]+/g, '_');
            link.click();
            setTimeout(() => URL.revokeObjectURL(address), 60000);
        }
    }

    // ---- Find in the item -------------------------------------------------------------------

    /** @type {number[]} */
    let found = [];
    let finds = 0;

    async function find() {
        const number = ++finds;
        const text = input('vf').value;
        const searched = view;
        found = [];
        pattern = text ? patternOf(text) : null;
        blocks.filter((block) => block.filled).forEach((block) => {
            block.filled = false;
            fill(block);
        });
        if (!searched || !pattern) {
            goToLine(0);
            return;
        }
        let until = performance.now() + BUSY;
        for (let row = 0; row < searched.starts.length && found.length < MOST_HITS; ++row) {
            if (textOf(bytesOfRow(searched, row)).search(pattern) >= 0) {
                found.push(row);
            }
            if (performance.now() > until) {
                tell(`Searching: line ${grouped(row + 1)}`);
                await pause();
                if (number !== finds || view !== searched) {
                    return;
                }
                until = performance.now() + BUSY;
            }
        }
        goToFound(0);
    }

    /** @param {number} step */
    function goToFound(step) {
        if (found.length === 0) {
            tell(input('vf').value ? 'Not found' : '');
            return;
        }
        const at = (Math.max(found.indexOf(marked), 0) + step + found.length) % found.length;
        goTo(found[at]);
        tell(`${grouped(at + 1)} of ${found.length < MOST_HITS ? '' : 'the first '}` +
            `${counted(found.length, 'line')} with it`);
    }

    let findTimer = 0;
    input('vf').addEventListener('input', () => {
        clearTimeout(findTimer);
        findTimer = setTimeout(find, 150);
    });
    input('vf').addEventListener('keydown', (event) => {
        if (event.key === 'Enter') {
            event.preventDefault();
            goToFound(event.shiftKey ? -1 : 1);
        } else if (event.key === 'Escape' && input('vf').value) {
            event.preventDefault();
            input('vf').value = '';
            find();
        }
    });
    input('vl').addEventListener('keydown', (event) => {
        const line = Number(input('vl').value.replace(/\D/g, ''));
        if (event.key === 'Enter' && view && line > 0) {
            visit(`#i${view.item}L${line}`);
        }
    });
    input('vw').addEventListener('change', () => body.classList.toggle('w', input('vw').checked));
    $('vp').addEventListener('click', () => turn(-1));
    $('vn').addEventListener('click', () => turn(1));
    $('vs').addEventListener('click', save);
    $('vc').addEventListener('click', () => viewer.close());

    // ---- Search -----------------------------------------------------------------------------

    /** @type {number[]} the items that open, in the order of the list */
    const files = [];
    const entries = /** @type {NodeListOf<HTMLElement>} */ (document.querySelectorAll('#items li'));
    for (const entry of entries) {
        const item = Number(entry.id.slice(1));
        const [name, size, description] = (entry.textContent || '').split('\n');
        entry.textContent = '';
        if (opens(item)) {
            files.push(item);
            addLink(entry, '#i' + item, name);
        } else {
            add(entry, 'b', name);
        }
        add(entry, 'i', size.slice(1, -1));
        add(entry, 'span', description);
    }

    /** @type {string[]} */
    let texts = [];
    let searches = 0;

    /** @param {RegExp | null} wanted */
    function filter(wanted) {
        if (texts.length === 0) {
            texts = [...entries].map((entry) =>
                `${entry.closest('details')?.querySelector('h3')?.textContent}/` +
                `${entry.textContent}`);
        }
        let number = 0;
        entries.forEach((entry, at) => {
            const matches = !wanted || texts[at].search(wanted) >= 0;
            entry.hidden = !matches;
            number += matches ? 1 : 0;
        });
        for (const group of document.querySelectorAll('#items details')) {
            const any = group.querySelector('li:not([hidden])') !== null;
            /** @type {HTMLDetailsElement} */ (group).hidden = !any;
        }
        $('n').textContent = wanted ? `${grouped(number)} of ${counted(entries.length, 'item')}. ` : '';
        if (wanted) {
            addLink($('n'), '#hits', 'Lines of contents');
        }
    }

    /**
     * The lines of an item in pieces of many, each with the number of its first line. A very long
     * line comes in parts that overlap.
     * @param {number} item
     * @param {number} overlap characters
     * @returns {AsyncGenerator<[number, string]>}
     */
    async function* textsOf(item, overlap) {
        const [, head, , skipped] = cuts.get(item) || [item, Infinity, 0, 0];
        const decoder = new TextDecoder();
        let line = 1;
        let at = 0;
        let rest = '';
        for await (const part of partsOf(item)) {
            const split = head > at && head < at + part.length ? head - at : part.length;
            for (const piece of [part.subarray(0, split), part.subarray(split)]) {
                if (at === head && piece.length > 0) {
                    yield [line, rest + decoder.decode()];
                    line += skipped;
                    rest = '';
                }
                at += piece.length;
                const text = rest + decoder.decode(piece, {stream: true});
                const end = text.lastIndexOf('\n') + 1;
                rest = text.slice(end);
                if (rest.length > PART_OF_LINE) {
                    yield [line, text];
                    rest = rest.slice(-overlap || rest.length);
                } else if (end > 0) {
                    yield [line, text.slice(0, end)];
                }
                line += feedsIn(text, 0, end);
            }
        }
        yield [line, rest + decoder.decode()];
    }

    /**
     * @param {string} text
     * @param {number} begin
     * @param {number} end
     */
    function feedsIn(text, begin, end) {
        let number = 0;
        for (let at = text.indexOf('\n', begin); at >= 0 && at < end; ++number) {
            at = text.indexOf('\n', at + 1);
        }
        return number;
    }

    /**
     * The lines of a text that have a hit, with their numbers.
     * @param {string} text
     * @param {number} line of its beginning
     * @param {RegExp} wanted
     * @returns {Generator<[number, string]>}
     */
    function* hitsIn(text, line, wanted) {
        let before = 0;
        wanted.lastIndex = 0;
        for (let match = wanted.exec(text); match; match = wanted.exec(text)) {
            line += feedsIn(text, before, match.index);
            before = match.index;
            const begin = before === 0 ? 0 : text.lastIndexOf('\n', before - 1) + 1;
            const feed = text.indexOf('\n', before);
            const end = feed < 0 ? text.length : feed;
            yield [line, text.slice(begin, end)];
            wanted.lastIndex = end;
        }
    }

    /**
     * @param {HTMLElement} list
     * @param {number} item
     * @param {number} line
     * @param {string} text
     * @param {RegExp} wanted
     */
    function addHit(list, item, line, text, wanted) {
        const at = text.search(wanted);
        let begin = Math.max(at - EXCERPT, 0);
        let end = Math.min(at + EXCERPT * 2, text.length);
        begin += /[\udc00-\udfff]/.test(text.charAt(begin)) ? 1 : 0;  // not within a character
        end += /[\udc00-\udfff]/.test(text.charAt(end)) ? 1 : 0;
        const entry = add(list, 'li', '');
        addLink(entry, `#i${item}L${line}`, String(line));
        addText(add(entry, 'code', ''), (begin > 0 ? '\u2026' : '') + text.slice(begin, end) +
            (end < text.length ? '\u2026' : ''), wanted);
    }

    /**
     * Adds an item that has a hit.
     * @param {number} item
     */
    function addHits(item) {
        const heading = add($('hl'), 'h3', '');
        addLink(heading, '#i' + item, nameOf(item));
        add(heading, 'small', ' ' + descriptionOf(item));
        return add($('hl'), 'ul', '');
    }

    /** @param {string} query */
    async function searchContents(query) {
        const number = searches;
        const wanted = patternOf(query);
        const shown = patternOf(query);
        let hits = 0;
        let items = 0;
        let until = performance.now() + BUSY;
        // In the order of the contents, so that each chunk is opened once.
        const ordered = [...files].sort((one, other) => one - other);
        for (const [at, item] of ordered.entries()) {
            /** @type {HTMLElement | null} */
            let list = null;
            for await (const [first, text] of textsOf(item, query.length - 1)) {
                if (number !== searches) {
                    return;
                }
                for (const [line, excerpt] of hitsIn(text, first, wanted)) {
                    if (hits === MOST_HITS) {
                        $('hs').textContent = `The first ${counted(hits, 'line')}, in ` +
                            `${counted(items, 'item')}. There are more.`;
                        return;
                    }
                    items += list ? 0 : 1;
                    list = list || addHits(item);
                    addHit(list, item, line, excerpt, shown);
                    ++hits;
                }
                if (performance.now() > until) {
                    $('hs').textContent = `Searching: ${counted(hits, 'line')} so far, ` +
                        `${Math.floor(100 * at / ordered.length)}% of the items`;
                    await pause();
                    until = performance.now() + BUSY;
                }
            }
        }
        if (number === searches) {
            $('hs').textContent = `${counted(hits, 'line')} in ${counted(items, 'item')}`;
        }
    }

    let searchTimer = 0;
    function search() {
        ++searches;
        clearTimeout(searchTimer);
        const query = input('s').value.trim();
        const wanted = query ? patternOf(query) : null;
        document.body.classList.toggle('q', wanted !== null);
        filter(wanted);
        $('hits').hidden = query.length < 2;
        $('hl').textContent = '';
        $('hs').textContent = '';
        if (wanted && query.length >= 2) {
            $('hs').textContent = 'Searching...';
            searchTimer = setTimeout(() => searchContents(query), 250);
        }
    }
    input('s').addEventListener('input', () => {
        search();
        window.scrollTo(0, 0);
    });
    input('s').addEventListener('keydown', (event) => {
        if (event.key === 'Escape' && input('s').value) {
            event.preventDefault();
            input('s').value = '';
            search();
        }
    });
    input('s').form?.addEventListener('submit', (event) => event.preventDefault());

    // ---- Time line --------------------------------------------------------------------------

    const table = document.querySelector('.t tbody');
    const rows = table ? [.../** @type {NodeListOf<HTMLTableRowElement>} */ (
        table.querySelectorAll('tr'))] : [];

    /** @param {string} id */
    function toggled(id) {
        const pressed = $(id).getAttribute('aria-pressed') !== 'true';
        $(id).setAttribute('aria-pressed', String(pressed));
        return pressed;
    }

    /** @param {HTMLTableRowElement} row */
    const secondsOf = (row) => row.className === 'q' ? -1 : parseInt(row.cells[1].textContent || '0');

    /** Lists the tools of the rows that stand for several, with their commands in the run log. */
    async function listTools() {
        const view = viewOf(data.log, await bytesOf(data.log));
        /** @param {number} line */
        const textAt = (line) => {
            const row = rowOf(view, line);
            return row >= 0 ? textOf(bytesOfRow(view, row)) : '';
        };
        const directory = document.querySelector('#tools code')?.textContent || '/';
        const lines = [0];
        for (let tool = 0; 2 * tool < data.tools.length; ++tool) {
            lines.push(lines[tool] + data.tools[2 * tool]);
        }
        for (const row of rows.filter((each) => each.className === 'q')) {
            const [first, last] = (row.dataset.t || '').split(' ').map(Number);
            const list = add(row.cells[4], 'ul', '');
            for (let tool = first; tool < last; ++tool) {
                const line = lines[tool + 1];
                const item = data.tools[2 * tool + 1];
                const command = /= "(.*)"$/.exec(textAt(line + 1));
                const start = /= .* (\S+)$/.exec(textAt(line + 2));
                const entry = add(list, 'li', '');
                addLink(entry, `#i${data.log}L${line}`, start ? start[1] : String(line));
                entry.append(' ');
                const text = command ? command[1] : 'not in the page';
                addVisible(item >= 0 ? addLink(entry, '#i' + item, '') : entry,
                    text.startsWith(directory) ? text.slice(directory.length) : text);
            }
        }
    }

    $('ts')?.addEventListener('click', () => {
        const sorted = toggled('ts') ?
            [...rows].sort((one, other) => secondsOf(other) - secondsOf(one)) : rows;
        table?.append(...sorted);
    });
    $('ta')?.addEventListener('click', () => {
        if (toggled('ta')) {
            listTools();
        } else {
            table?.querySelectorAll('.q ul').forEach((list) => list.remove());
        }
    });

    if (matchMedia('(max-width: 45rem)').matches) {
        input('vw').checked = true;
        body.classList.add('w');
    }

    // ---- Keys and start ---------------------------------------------------------------------

    /** @param {number} step */
    function move(step) {
        if (viewer.open) {
            turn(step);
            return;
        }
        const all = /** @type {HTMLElement[]} */ ([...document.querySelectorAll(
            'article a, #items a, #hl a')].filter((node) =>
            /** @type {HTMLElement} */ (node).offsetParent !== null));
        const at = all.indexOf(/** @type {HTMLElement} */ (document.activeElement));
        all[Math.max(at + step, 0)]?.focus();
    }

    document.addEventListener('keydown', (event) => {
        if (event.ctrlKey || event.metaKey || event.altKey || !input('sk').checked ||
            (event.target instanceof HTMLInputElement && event.target.type !== 'checkbox')) {
            return;
        }
        if (event.key === '/') {
            event.preventDefault();
            (viewer.open ? input('vf') : input('s')).focus();
        } else if (event.key === 'j' || event.key === 'k') {
            move(event.key === 'j' ? 1 : -1);
        }
    });

    document.querySelectorAll('[hidden]:not(section)').forEach((node) =>
        node.removeAttribute('hidden'));
    addEventListener('hashchange', route);
    addEventListener('popstate', route);
    route();

    // For tests, and for a console.
    Object.assign(quendil, {bytesOf, nameOf});
}
