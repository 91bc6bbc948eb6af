// Details, zoom, search and the two drawings of the boxes around it, and the lanes of threads over time. A box knows which
// samples are its own: they are a range, and the ranges of what it calls lie within.
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
    const texts = (element) => element.querySelector("title").textContent.split("\n");
    const boxes = [...drawing.querySelectorAll("#boxes > svg")].map((element) => {
        const [name, figures] = texts(element);
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

    // Where there are no scripts, texts of the picture itself stand in its place.
    const html = (name, attributes, ...content) => {
        const element = document.createElementNS("http://www.w3.org/1999/xhtml", name);
        for (const [attribute, value] of Object.entries(attributes)) {
            element.setAttribute(attribute, value);
        }
        element.append(...content);
        return element;
    };
    const button = (id, text, press) => {
        const element = html("button", { id }, text);
        element.addEventListener("click", press);
        return element;
    };
    const inDrawing = (id) => drawing.getElementById(id);
    const graph = inDrawing("boxes");
    const timeline = inDrawing("timeline");
    const footer = inDrawing("footer");
    const showAll = button("all", "show all", () => zoom(whole));
    const waiting = button("waiting", "", () => draw(drawn === "all" ? "running" : "all"));
    const overTime = button("time", "threads over time", () => turn(!isOverTime));
    const search = html("input", { id: "search", placeholder: "search", "aria-label": "search" });
    const matched = html("span", { id: "matched", class: "note" });
    const details = html("p", { id: "details", "aria-live": "polite" });
    const header = html("div", { id: "header" },
        html("h1", {}, inDrawing("heading").textContent),
        html("p", { class: "note" }, inDrawing("summary").textContent),
        html("div", { id: "tools" }, waiting, overTime, showAll, search, matched),
        details);
    const holder = svg("foreignObject", { x: "1%", y: 10, width: "98%", height: 100 });
    holder.append(header);
    graph.before(holder);
    inDrawing("heading").remove();
    inDrawing("summary").remove();
    if (timeline === null) {
        overTime.remove();
    }
    const lanes = [...drawing.querySelectorAll("#timeline > .lane")].map((element) => {
        const [name, figures] = texts(element);
        return { element, name, figures };
    });
    let isOverTime = false;
    let lane = null; // what the mouse points at, or the keys

    // What a key does that does nothing here is not said.
    const hint = () => isOverTime
        ? "Point at a thread for its figures. Keys: arrows, T or Esc for the flame graph."
        : "Point at a box for its figures, click it to zoom in. Keys: arrows and Enter, / to search, "
            + (waiting.hidden ? "" : "W for waiting, ") + (timeline === null ? "" : "T for threads over time, ") + "Esc to go back.";

    // Its text may take several lines.
    const arrange = () => {
        const top = Math.ceil(header.getBoundingClientRect().height) + 14;
        holder.setAttribute("height", top);
        const shown = isOverTime ? timeline : graph;
        const rows = boxes.filter((box) => isVisible(box)).map((box) => box.row);
        const height = isOverTime ? Number(timeline.getAttribute("height")) : rows.reduce((a, b) => Math.max(a, b), 0) + 19;
        shown.setAttribute("y", top);
        footer.setAttribute("y", top + height + 19);
        drawing.setAttribute("height", top + height + 30);
    };

    const place = () => {
        const width = graph.getBoundingClientRect().width || drawing.getBoundingClientRect().width * 0.98;
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
        const one = isOverTime ? lane : current ?? (focus === whole ? null : focus);
        const ofFocus = isOverTime || focus === whole || !one ? ""
            : `, ${percent(Math.min(shown(one).samples, shown(focus).samples), shown(focus).samples)} of what is shown`;
        // A name from right to left is not to take the figures along.
        details.replaceChildren(...(one ? [html("bdi", {}, one.name), `: ${one.figures}${ofFocus}`] : [hint()]));
        for (const other of drawing.querySelectorAll("svg.current")) {
            other.classList.remove("current");
        }
        (isOverTime ? lane : current)?.element.classList.add("current");
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
        showAll.hidden = box === whole;
        place();
        showDetails();
        find();
        arrange();
    };

    const turn = (toTime) => {
        isOverTime = toTime && timeline !== null;
        overTime.setAttribute("aria-pressed", isOverTime);
        overTime.parentElement?.classList.toggle("time", isOverTime);
        graph.setAttribute("display", isOverTime ? "none" : "inline");
        footer.setAttribute("display", isOverTime ? "none" : "inline");
        timeline?.setAttribute("display", isOverTime ? "inline" : "none");
        showDetails();
        arrange();
    };

    const draw = (which) => {
        drawn = which;
        const isAll = drawn === "all";
        const { running, all } = whole;
        waiting.textContent = `${isAll ? "hide" : "show"} waiting (${percent(all.samples - running.samples, all.samples)} of all samples)`;
        waiting.hidden = running.samples === 0 || running.samples === all.samples;
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

    const stepLane = (key) => {
        const by = key === "ArrowUp" || key === "ArrowLeft" ? -1 : 1;
        lane = lane === null ? lanes[0] : lanes[lanes.indexOf(lane) + by] ?? lane;
        showDetails();
        lane.element.scrollIntoView({ block: "nearest" });
    };

    const boxAt = (event) => byElement.get(event.target.closest("#boxes > svg"));
    drawing.addEventListener("mouseover", (event) => {
        current = boxAt(event) ?? null;
        lane = lanes.find((one) => one.element.contains(event.target)) ?? null;
        showDetails();
    });
    drawing.addEventListener("click", (event) => {
        const box = boxAt(event);
        if (box) {
            zoom(box);
        }
    });
    search.addEventListener("input", find);
    window.addEventListener("resize", () => (place(), arrange()));
    window.addEventListener("keydown", (event) => {
        const isTyping = document.activeElement === search;
        const isPressing = document.activeElement?.localName === "button";
        if (event.key === "Escape") {
            if (isOverTime) {
                turn(false);
            } else if (search.value !== "") {
                search.value = "";
                find();
            } else {
                zoom(whole);
            }
            search.blur();
        } else if (isTyping || event.ctrlKey || event.altKey || event.metaKey) {
            return;
        } else if (event.key.toLowerCase() === "t" && timeline !== null) {
            turn(!isOverTime);
        } else if (event.key.startsWith("Arrow")) {
            event.preventDefault();
            (isOverTime ? stepLane : step)(event.key);
        } else if (isOverTime) {
            return; // all other keys are about the flame graph
        } else if (event.key === "/") {
            event.preventDefault();
            search.focus();
        } else if (event.key === "Enter" && current && !isPressing) {
            zoom(current);
        } else if (event.key.toLowerCase() === "w" && !waiting.hidden) {
            draw(drawn === "all" ? "running" : "all");
        }
    });
    draw(drawn);
    turn(false);
})();
