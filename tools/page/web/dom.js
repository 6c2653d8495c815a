// Small helpers for the page's elements. Data goes in as text alone, never as markup.

/// An element. props: class, text, on ({click: f}), dataset, properties that start with "." (".value"), else attributes;
/// null and false leave an attribute out.
export function el(tag, props = {}, ...children) {
    const node = document.createElement(tag);
    for (const [name, value] of Object.entries(props)) {
        if (name === 'on') for (const [event, handler] of Object.entries(value)) node.addEventListener(event, handler);
        else if (name === 'text') node.textContent = value;
        else if (name === 'dataset') Object.assign(node.dataset, value);
        else if (name.startsWith('.')) node[name.slice(1)] = value;
        else setAttribute(node, name, value);
    }
    node.append(...children.filter(child => child !== null && child !== undefined));
    return node;
}

/// The same for SVG, attributes alone.
export function svg(tag, attributes = {}, ...children) {
    const node = document.createElementNS('http://www.w3.org/2000/svg', tag);
    for (const [name, value] of Object.entries(attributes)) node.setAttribute(name, value);
    node.append(...children);
    return node;
}

export function setAttribute(node, name, value) {
    if (value === null || value === undefined || value === false) node.removeAttribute(name);
    else if (node.getAttribute(name) !== String(value === true ? '' : value))
        node.setAttribute(name, value === true ? '' : value);
}

/// Writes only what changes, so that a selection and screen readers stay undisturbed.
export function setText(node, text) {
    const wanted = String(text);
    if (node.textContent !== wanted) node.textContent = wanted;
}

/// Makes the children of parent those of items, in their order: kept by key, made when new, removed when gone.
export function keyed(parent, items, keyOf, make, update) {
    const wanted = new Set(items.map(item => String(keyOf(item))));
    const kept = new Map();
    for (const child of [...parent.children])
        if (wanted.has(child.dataset.key)) kept.set(child.dataset.key, child);
        else child.remove();
    let place = parent.firstElementChild;
    for (const item of items) {
        const key = String(keyOf(item));
        let child = kept.get(key);
        if (!child) {
            child = make(item);
            child.dataset.key = key;
        }
        if (child === place) place = place.nextElementSibling;
        else parent.insertBefore(child, place);
        update?.(child, item);
    }
}

/// Tells screen readers.
export function announce(text) {
    setText(document.getElementById('live'), text);
}

/// What to do next where there is nothing to show; commands are set as code.
export function emptyState(title, ...lines) {
    const paragraphs = lines.map(line =>
        el('p', {}, ...line.split('`').map((part, i) => (i % 2 ? el('code', {text: part}) : part)))
    );
    return el('div', {class: 'empty'}, el('strong', {text: title}), ...paragraphs);
}

export function saveAs(blob, name) {
    const address = URL.createObjectURL(blob);
    el('a', {href: address, download: name}).click();
    setTimeout(() => URL.revokeObjectURL(address), 10000);
}
