// Details, zoom, search and the two drawings of the boxes around it. A box knows which samples are its own: they are a
// range, and the ranges of what it calls lie within.
(() => {
    const drawing = document.currentScript.ownerSVGElement;
    const svg = (name, attributes, text = "") => {
        const element = document.createElementNS("http://www.w3.org/2000/svg", name);
        for (const [attribute, value] of Object.entries(attributes)) {
            element.setAttribute(attribute, value);
        }
        element.textContent = text;
        return element;
    };
    const range = (text) => {
        const [start, samples] = text.split(" ").map(Number);
        return { start, samples, end: start + samples };
    };
    const boxes = [...drawing.querySelectorAll("#boxes > svg")].map((element) => {
        const [name, figures] = element.querySelector("title").textContent.split("\n");
        const { running, all } = element.dataset;
        const row = Number(element.getAttribute("y"));
        const label = element.querySelector("text");
        return { element, label, name, figures, row, running: range(running), all: range(all) };
    });
    if (boxes.length === 0) {
        return;
    }
    const whole = boxes[0];
    const byElement = new Map(boxes.map((box) => [box.element, box]));
    const percent = (samples, all) => `${all === 0 ? "0.0" : ((100 * samples) / all).toFixed(1)} %`;

    // Each box stands behind its caller.
    const callers = [];
    for (const box of boxes) {
        while (callers.length > 0 && callers[callers.length - 1].row >= box.row) {
            callers.pop();
        }
        box.caller = callers[callers.length - 1];
        box.callees = [];
        box.caller?.callees.push(box);
        callers.push(box);
    }

    let drawn = whole.running.samples > 0 ? "running" : "all";
    let focus = whole;
    let current = null; // what the mouse points at, or the keys
    const shown = (box) => box[drawn];
    const contains = (outer, inner) => shown(outer).start <= shown(inner).start && shown(inner).end <= shown(outer).end;
    const isVisible = (box) => box.element.getAttribute("display") !== "none";

    const hint = "Point at a box for its figures, click it to zoom in. Keys: arrows, Enter, / to search, W for waiting, Esc to go back.";
    const details = svg("text", { id: "details", x: "1%", y: 67 }, hint);
    const button = (id, x, press) => {
        const element = svg("text", { id, class: "right button", x, y: 67, tabindex: 0, role: "button" });
        element.addEventListener("click", press);
        element.addEventListener("keydown", (event) => event.key === "Enter" && (event.stopPropagation(), press()));
        return element;
    };
    const showAll = button("all", "99%", () => zoom(whole));
    showAll.textContent = "show all";
    const waiting = button("waiting", "99%", () => draw(drawn === "all" ? "running" : "all"));
    waiting.setAttribute("y", 45);
    const matched = svg("text", { id: "matched", class: "right note", x: "78%", y: 26 });
    const holder = svg("foreignObject", { x: "79%", y: 9, width: "20%", height: 26 });
    const search = document.createElementNS("http://www.w3.org/1999/xhtml", "input");
    search.id = "search";
    search.placeholder = "search";
    holder.append(search);
    drawing.querySelector("#boxes").before(details, showAll, waiting, matched, holder);

    const place = () => {
        const width = drawing.querySelector("#boxes").getBoundingClientRect().width;
        const seen = shown(focus);
        for (const box of boxes) {
            const { start, samples } = shown(box);
            const isOuter = box !== focus && box.row < focus.row && contains(box, focus);
            const isShown = samples > 0 && (isOuter || contains(focus, box) && box.row >= focus.row);
            box.element.setAttribute("display", isShown ? "inline" : "none");
            box.element.classList.toggle("outer", isOuter);
            if (isShown) {
                const part = isOuter ? 1 : samples / seen.samples;
                box.element.setAttribute("x", `${isOuter ? 0 : (100 * (start - seen.start)) / seen.samples}%`);
                box.element.setAttribute("width", `${100 * part}%`);
                // A label is there if there is room for some of it.
                box.label.setAttribute("display", part * width > 14 ? "inline" : "none");
            }
        }
    };

    const showDetails = () => {
        const box = current ?? (focus === whole ? null : focus);
        const ofFocus = focus === whole || !box ? ""
            : `, ${percent(Math.min(shown(box).samples, shown(focus).samples), shown(focus).samples)} of what is shown`;
        details.textContent = box ? `${box.name}: ${box.figures}${ofFocus}` : hint;
        for (const other of drawing.querySelectorAll("#boxes > svg.current")) {
            other.classList.remove("current");
        }
        current?.element.classList.add("current");
    };

    // Samples in several boxes, one inside the other, count once: callers come first.
    const find = () => {
        const wanted = search.value.trim().toLowerCase();
        let end = shown(focus).start;
        let samples = 0;
        for (const box of boxes) {
            const isMatched = wanted !== "" && box.name.toLowerCase().includes(wanted);
            box.element.classList.toggle("matched", isMatched);
            const last = Math.min(shown(box).end, shown(focus).end);
            if (isMatched && isVisible(box) && last > end) {
                samples += last - Math.max(shown(box).start, end);
                end = last;
            }
        }
        matched.textContent = wanted === "" ? "" : `${percent(samples, shown(focus).samples)} matched`;
    };

    const zoom = (box) => {
        focus = box;
        showAll.setAttribute("display", box === whole ? "none" : "inline");
        place();
        showDetails();
        find();
    };

    const draw = (which) => {
        drawn = which;
        const isAll = drawn === "all";
        const { running, all } = whole;
        waiting.textContent = `${isAll ? "hide" : "show"} waiting (${percent(all.samples - running.samples, all.samples)} of all samples)`;
        waiting.setAttribute("display", running.samples > 0 && running.samples < all.samples ? "inline" : "none");
        waiting.setAttribute("aria-pressed", isAll);
        if (current && shown(current).samples === 0) {
            current = null;
        }
        zoom(shown(focus).samples > 0 ? focus : whole);
    };

    const step = (key) => {
        const widest = (some) => some.filter(isVisible).sort((a, b) => shown(b).samples - shown(a).samples)[0];
        const beside = (box, by) => {
            const row = boxes.filter((other) => other.row === box.row && isVisible(other));
            return row[row.indexOf(box) + by];
        };
        const from = current ?? focus;
        const to = key === "ArrowUp" ? from.caller
            : key === "ArrowDown" ? widest(from.callees)
            : beside(from, key === "ArrowLeft" ? -1 : 1);
        current = (current ? to : from) ?? current;
        showDetails();
        current.element.scrollIntoView({ block: "nearest" });
    };

    const boxAt = (event) => byElement.get(event.target.closest("#boxes > svg"));
    drawing.addEventListener("mouseover", (event) => {
        current = boxAt(event) ?? null;
        showDetails();
    });
    drawing.addEventListener("click", (event) => {
        const box = boxAt(event);
        if (box) {
            zoom(box);
        }
    });
    search.addEventListener("input", find);
    window.addEventListener("resize", place);
    window.addEventListener("keydown", (event) => {
        const isTyping = document.activeElement === search;
        if (event.key === "Escape") {
            if (search.value !== "") {
                search.value = "";
                find();
            } else {
                zoom(whole);
            }
            search.blur();
        } else if (isTyping || event.ctrlKey || event.altKey || event.metaKey) {
            return;
        } else if (event.key === "/") {
            event.preventDefault();
            search.focus();
        } else if (event.key.startsWith("Arrow")) {
            event.preventDefault();
            step(event.key);
        } else if (event.key === "Enter" && current) {
            zoom(current);
        } else if (event.key.toLowerCase() === "w" && waiting.getAttribute("display") !== "none") {
            draw(drawn === "all" ? "running" : "all");
        }
    });
    draw(drawn);
})();
