// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Every request of the page to its server.

export class Refused extends Error {
    constructor(message, status) {
        super(message);
        this.status = status;
    }
}

const camera = (id) => `/api/v1/cameras/${encodeURIComponent(id)}`;

// The refusal in the server's words, also when an answer is no JSON.
async function answerOf(response) {
    const answer = await response.json().catch(() => ({}));
    if (response.ok && answer.ok !== false)
        return answer;
    throw new Refused(answer.error ?? `The server answers ${response.status}.`, response.status);
}

const get = async (path) => answerOf(await fetch(path, { signal: AbortSignal.timeout(5000) }));

export const getState = () => get("/api/v1/state");
export const getSettings = async () => (await get("/api/v1/settings")).settings;

// What a browser sends without being asked cannot have this header.
export async function post(id, what, body) {
    const headers = { "Content-Type": "application/json", "X-VQD": "1" };
    return answerOf(await fetch(`${camera(id)}/${what}`, { method: "POST", headers, body: JSON.stringify(body) }));
}

// The answer with the next frame, or null when there was none within a second.
export async function getFrame(id, { after, session, small }, signal) {
    const path = `${camera(id)}/frame?after=${after}&session=${session}${small ? "&small=1" : ""}`;
    const response = await fetch(path, { signal });
    if (response.status === 204)
        return null;
    if (!response.ok)
        await answerOf(response);
    return response;
}
